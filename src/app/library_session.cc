#include "app/library_session.h"

#include <chrono>
#include <thread>

#include "library/settings_store.h"
#include "platform/log.h"

namespace klipora::app {
namespace {

// A daemon that holds the lock but does not listen yet is starting; give it
// this long before working on the store directly.
constexpr double kStartingDaemonWait = 3.0;

}  // namespace

LibrarySession::LibrarySession(AppPlatform& platform)
    : platform_(platform),
      markupEdits_(platform.fileSystem),
      processing_{.ocrEngines = platform.ocrEngines,
                  .recognition = platform.recognition,
                  .labels = platform.labels,
                  .makeLanguageModel = platform.makeLanguageModel,
                  .lexicon = platform.lexicon} {}

LibrarySession::~LibrarySession() {
  if (fileSink_) log::removeSink(fileSink_);
}

AppEnvironment LibrarySession::environment() {
  return AppEnvironment{
      .fileSystem = platform_.fileSystem,
      .imageCodec = platform_.imageCodec,
      .clock = platform_.clock,
      .timers = platform_.mainLoop,
      .mainLoop = platform_.mainLoop,
      .background = platform_.background,
      .userDefaults = *defaults_,
      .markupEdits = markupEdits_,
      .mountWatch = nullptr,
      .supportFolder = paths().supportFolder,
      .defaultLibraryRoot = paths().defaultLibraryRoot,
      .processing = &processing_,
  };
}

const AppPaths& LibrarySession::paths() {
  if (!paths_) paths_ = resolveAppPaths(platform_.getenv, homeOption);
  return *paths_;
}

Status LibrarySession::open() {
  if (opened_) return Status::Ok();
  auto& fs = platform_.fileSystem;
  auto storePath = library::KliporaModelContainer::storeURL(fs, paths());
  if (!storePath) {
    return Status::Unavailable("cannot create " + paths().supportFolder + ": " +
                               storePath.error().message());
  }
  auto container = library::KliporaModelContainer::make(fs, platform_.clock, *storePath);
  if (!container) {
    return Status::Unavailable(
        library::KliporaModelContainer::fatalMessage(*storePath, container.error()));
  }
  container_ = *container;
  auto settings = library::fetchOrCreateSettings(container_->mainContext());
  if (!settings) {
    return Status::Unavailable("cannot read the settings: " + settings.error().message());
  }
  settings_ = *settings;
  defaults_ = std::make_unique<UserDefaults>(fs, paths().defaultsPath);
  (void)defaults_->load();  // a broken file is logged and read as empty
  root_ = library::resolveLibraryRoot(fs, settings_->libraryFolder, paths().defaultLibraryRoot);
  storage_ = std::make_unique<library::StorageService>(fs, platform_.imageCodec, root_.root);
  if (Status s = storage_->createLibraryStructure(); !s.ok()) {
    return Status::IoError("cannot prepare the library folder " + root_.root + ": " +
                           s.message());
  }
  fileSink_ = platform_.makeFileLogSink(joinPath(storage_->diagnosticsFolder(), "klipora.log"),
                                        joinPath(storage_->diagnosticsFolder(), "classify.log"));
  log::addSink(fileSink_);
  opened_ = true;
  return Status::Ok();
}

std::optional<DaemonHolder> LibrarySession::runningDaemon() {
  auto holder = platform_.processLocks.currentHolder(daemonLockPath(paths().supportFolder));
  if (!holder) return std::nullopt;
  auto decoded = decodeDaemonHolder(*holder);
  return decoded ? decoded : std::optional<DaemonHolder>(DaemonHolder{});
}

RequestTarget LibrarySession::storeRequestTarget(AppCoordinator* coordinator) {
  return RequestTarget{
      .context = context(),
      .markupEdits = markupEdits_,
      .clock = platform_.clock,
      .timers = platform_.mainLoop,
      .userDefaults = *defaults_,
      .coordinator = coordinator,
      .storage = coordinator ? nullptr : storage_.get(),
      .storePath = container_->storePath(),
      .libraryRoot = coordinator ? coordinator->libraryRoot() : root_.root,
      .fallbackNotice = coordinator ? coordinator->fallbackNotice() : root_.fallbackNotice,
      .daemonPid = std::nullopt,
  };
}

Result<LibraryReply> LibrarySession::request(const Json& request, double timeoutSeconds) {
  Clock& clock = platform_.clock;
  const double start = clock.monotonicSeconds();
  while (auto daemon = runningDaemon()) {
    if (!daemon->socket.empty()) {
      auto line = platform_.controlClient.request(daemon->socket, request.dump(), timeoutSeconds);
      if (line) {
        auto reply = Json::parse(*line, nullptr, /*allow_exceptions=*/false);
        if (reply.is_object()) return LibraryReply{std::move(reply), true};
        return Err(Status::Corruption("the daemon sent a reply that is not JSON"));
      }
      if (line.error().code() != Status::Code::kUnavailable) {
        return Err(Status(line.error().code(), "the daemon (pid " + std::to_string(daemon->pid) +
                                                   ") did not answer: " + line.error().message()));
      }
    }
    if (clock.monotonicSeconds() - start > kStartingDaemonWait) {
      log::warning("daemon", "the daemon (pid %d) is not answering; working on the library directly",
                   daemon->pid);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }

  RETURN_IF_ERROR(open());
  ControlRequestHandler handler(storeRequestTarget(nullptr));
  std::optional<Json> reply;
  handler.handle(request, [&reply](Json r) { reply = std::move(r); });
  if (!reply) return Err(Status::FailedPrecondition("this request needs the daemon (`klipora run`)"));
  return LibraryReply{std::move(*reply), false};
}

std::string replyError(const Json& reply) {
  if (reply.contains("error") && reply["error"].is_string()) return reply["error"];
  return "the request failed";
}

}  // namespace klipora::app
