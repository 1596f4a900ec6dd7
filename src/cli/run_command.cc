// klipora run: the daemon that owns watching and processing of one library.
// It holds the library's daemon lock, opens the store, starts the
// coordinator and its control channel, and runs until SIGINT or SIGTERM; a
// second signal stops it without waiting for imports in flight.
#include <CLI/CLI.hpp>
#include <iostream>

#include "app/daemon.h"
#include "app/daemon_paths.h"
#include "app/processing_service.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "markup/non_destructive_edit_cleaner.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

// Writes the informational lines the warning-level sink of main() leaves
// out, so a daemon's whole log reaches its terminal or journal once.
class InfoLineSink final : public log::LogSink {
 public:
  void write(log::Level level, log::Channel channel, std::string_view line) override {
    if (channel != log::Channel::kMain || level != log::Level::kInfo) return;
    std::cerr << line << "\n";
  }
};

int RunDaemon(CliSession& session, bool quiet, bool login) {
  auto& platform = session.platform();
  auto& fs = platform.fileSystem;
  const AppPaths& paths = session.paths();
  auto storePath = library::KliporaModelContainer::storeURL(fs, paths);
  if (!storePath) {
    std::cerr << "klipora: cannot create " << paths.supportFolder << ": "
              << storePath.error().message() << "\n";
    return kExitStoreUnavailable;
  }

  // Two daemons must never drive one library: the lock lives beside the store.
  auto& locks = platform.processLocks;
  const int pid = platform.processID;
  auto lock =
      locks.tryLock(app::daemonLockPath(paths.supportFolder), app::encodeDaemonHolder({pid, ""}));
  if (!lock) {
    if (login && lock.error().code() == Status::Code::kAlreadyExists) {
      // Started at log-in by the second of the two ways; the first one won.
      std::cout << "Klipora is already running on " << *storePath << ".\n";
      return kExitOk;
    }
    if (lock.error().code() == Status::Code::kAlreadyExists) {
      auto holder = app::decodeDaemonHolder(lock.error().message());
      std::cerr << "klipora: another `klipora run`"
                << (holder ? " (pid " + std::to_string(holder->pid) + ")" : std::string())
                << " is already running on the library at " << *storePath << "; stop it first.\n";
    } else {
      std::cerr << "klipora: cannot take the daemon lock: " << lock.error().message() << "\n";
    }
    return kExitFailure;
  }

  std::shared_ptr<log::LogSink> infoSink;
  if (!quiet) {
    infoSink = std::make_shared<InfoLineSink>();
    log::addSink(infoSink);
  }
  log::info("Boot", "AppDelegate: creating ModelContainer (headless path)");
  auto container = library::KliporaModelContainer::make(fs, platform.clock, *storePath);
  if (!container) {
    std::cerr << library::KliporaModelContainer::fatalMessage(*storePath, container.error())
              << "\n";
    if (infoSink) log::removeSink(infoSink);
    return kExitStoreUnavailable;
  }
  UserDefaults defaults(fs, paths.defaultsPath);
  if (Status s = defaults.load(); !s.ok()) log::warning("Boot", "%s", s.message().c_str());

  markup::NonDestructiveEditCleaner markupEdits(fs);
  auto mountWatch = platform.makeMountWatch();
  auto server = platform.makeControlServer();
  auto folderWatch = platform.makeFolderWatch ? platform.makeFolderWatch() : nullptr;
  auto activeApplication =
      platform.makeActiveApplication ? platform.makeActiveApplication() : nullptr;
  auto sessionWatch = platform.makeSessionWatch ? platform.makeSessionWatch() : nullptr;
  app::ProcessingPlatform processing{
      .ocrEngines = platform.ocrEngines,
      .recognition = platform.recognition,
      .labels = platform.labels,
      .freshRecognition = &platform.freshRecognition,
      .makeLanguageModel = platform.makeLanguageModel,
      .lexicon = platform.lexicon,
  };
  app::AppEnvironment env{
      .fileSystem = fs,
      .imageCodec = platform.imageCodec,
      .clock = platform.clock,
      .timers = platform.mainLoop,
      .mainLoop = platform.mainLoop,
      .background = platform.background,
      .userDefaults = defaults,
      .markupEdits = markupEdits,
      .mountWatch = mountWatch.get(),
      .folderWatch = folderWatch.get(),
      .activeApplication = activeApplication.get(),
      .sessionWatch = sessionWatch.get(),
      .desktopSettings = platform.desktopSettings,
      .getenv = platform.getenv,
      .supportFolder = paths.supportFolder,
      .defaultLibraryRoot = paths.defaultLibraryRoot,
      .processing = &processing,
  };
  const char* runtimeDir = platform.getenv("XDG_RUNTIME_DIR");
  app::Daemon daemon(
      env, (*container)->mainContext(), *server,
      {.storePath = *storePath, .pid = pid, .runtimeDir = runtimeDir ? runtimeDir : ""},
      app::defaultServiceFactories());

  log::info("Boot", "AppDelegate: calling appCoordinator.start() (modelContext present=YES)");
  Status started = daemon.start();
  log::info("Boot", "AppDelegate: post-start modelContext present=YES");
  if (!started.ok()) {
    std::cerr << "klipora: cannot start: " << started.message() << "\n";
    if (infoSink) log::removeSink(infoSink);
    return kExitFailure;
  }
  auto& coordinator = daemon.coordinator();
  auto fileSink = platform.makeFileLogSink(
      joinPath(joinPath(coordinator.libraryRoot(), "Diagnostics"), "klipora.log"),
      joinPath(joinPath(coordinator.libraryRoot(), "Diagnostics"), "classify.log"));
  log::addSink(fileSink);
  log::info("Boot", "AppDelegate: modelContext set; calling reloadPreferencesIfNeeded()");
  coordinator.reloadPreferencesIfNeeded();
  if (Status s = (*lock)->setHolderInfo(app::encodeDaemonHolder({pid, daemon.controlAddress()}));
      !s.ok()) {
    log::warning("Boot", "other commands cannot find this daemon: %s", s.message().c_str());
  }

  auto count = (*container)->mainContext().fetchCount<library::ScreenshotItem>();
  std::cout << "Klipora is running on " << coordinator.libraryRoot() << " (" << count.value_or(0)
            << " items). Press Ctrl-C to stop.\n"
            << std::flush;
  if (auto notice = coordinator.fallbackNotice()) {
    std::cout << "The chosen library folder " << notice->configuredPath << " is unavailable ("
              << library::reasonName(notice->reason)
              << "); using the default library for this session.\n"
              << std::flush;
  }

  // A service manager that started us learns that we are up, and later that
  // we are going.
  auto* manager = platform.serviceManager;
  if (manager) manager->notify("READY=1\nSTATUS=Watching and processing screenshots");

  // The first signal stops after imports in flight (a service manager's
  // SIGTERM waits only briefly for them); a second one does not wait.
  auto& loop = platform.mainLoop;
  Status finalSave;
  platform.stopSignals.watch([&](std::string_view name) {
    log::info("Boot", "received %.*s; stopping", static_cast<int>(name.size()), name.data());
    if (manager) manager->notify("STOPPING=1");
    daemon.requestStop(
        [&](Status saved) {
          finalSave = saved;
          platform.stopSignals.cancel();
          loop.stop();
        },
        name == "SIGTERM" ? app::Daemon::kTerminateGrace : app::Daemon::kShutdownGrace);
  });
  loop.run();

  log::removeSink(fileSink);
  if (infoSink) log::removeSink(infoSink);
  if (!finalSave.ok()) {
    std::cerr << "klipora: the last save failed: " << finalSave.message() << "\n";
    return kExitFailure;
  }
  std::cout << "Klipora stopped.\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(run) {
  auto* cmd = app.add_subcommand("run", "Run the library daemon until Ctrl-C (SIGINT) or SIGTERM");
  auto quiet = std::make_shared<bool>(false);
  auto login = std::make_shared<bool>(false);
  cmd->add_flag("--quiet", *quiet, "Print only warnings and errors of the log");
  cmd->add_flag("--login", *login,
                "Started at log-in: step aside quietly when a daemon already runs on the library");
  cmd->callback(
      [&session, quiet, login] { session.exitCode = RunDaemon(session, *quiet, *login); });
}

}  // namespace klipora::cli
