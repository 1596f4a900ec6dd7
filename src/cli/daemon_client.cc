#include "cli/daemon_client.h"

#include <chrono>
#include <iostream>
#include <thread>

#include "app/custom_category_service.h"
#include "app/processing_service.h"
#include "cli/command_registry.h"

namespace klipora::cli {
namespace {

// A daemon that holds the lock but does not listen yet is starting; give it
// this long before working on the store directly.
constexpr double kStartingDaemonWait = 3.0;

}  // namespace

std::optional<app::DaemonHolder> runningDaemon(CliSession& session) {
  auto holder = session.platform().processLocks.currentHolder(app::daemonLockPath(session.paths().supportFolder));
  if (!holder) return std::nullopt;
  auto decoded = app::decodeDaemonHolder(*holder);
  return decoded ? decoded : std::optional<app::DaemonHolder>(app::DaemonHolder{});
}

std::string replyError(const app::Json& reply) {
  if (reply.contains("error") && reply["error"].is_string()) return reply["error"];
  return "the request failed";
}

app::RequestTarget storeRequestTarget(CliSession& session, app::AppCoordinator* coordinator) {
  auto& platform = session.platform();
  return app::RequestTarget{
      .context = session.context(),
      .markupEdits = session.markupEdits(),
      .clock = platform.clock,
      .timers = platform.mainLoop,
      .userDefaults = session.userDefaults(),
      .coordinator = coordinator,
      .storage = coordinator ? nullptr : &session.storage(),
      .storePath = session.container().storePath(),
      .libraryRoot = coordinator ? coordinator->libraryRoot() : session.libraryRoot().root,
      .fallbackNotice = coordinator ? coordinator->fallbackNotice()
                                    : session.libraryRoot().fallbackNotice,
      .daemonPid = std::nullopt,
  };
}

std::optional<LibraryReply> runLibraryRequest(CliSession& session, const app::Json& request,
                                              double timeoutSeconds) {
  Clock& clock = session.platform().clock;
  const double start = clock.monotonicSeconds();
  while (auto daemon = runningDaemon(session)) {
    if (!daemon->socket.empty()) {
      auto line = session.platform().controlClient.request(daemon->socket, request.dump(), timeoutSeconds);
      if (line) {
        auto reply = app::Json::parse(*line, nullptr, /*allow_exceptions=*/false);
        if (reply.is_object()) return LibraryReply{std::move(reply), true};
        std::cerr << "klipora: the daemon sent a reply that is not JSON\n";
        session.exitCode = kExitFailure;
        return std::nullopt;
      }
      if (line.error().code() != Status::Code::kUnavailable) {
        std::cerr << "klipora: the daemon (pid " << daemon->pid
                  << ") did not answer: " << line.error().message() << "\n";
        session.exitCode = kExitFailure;
        return std::nullopt;
      }
    }
    if (clock.monotonicSeconds() - start > kStartingDaemonWait) {
      std::cerr << "klipora: the daemon (pid " << daemon->pid
                << ") is not answering; working on the library directly\n";
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }

  if (!session.openLibrary()) return std::nullopt;
  app::ControlRequestHandler handler(storeRequestTarget(session, nullptr));
  std::optional<app::Json> reply;
  handler.handle(request, [&reply](app::Json r) { reply = std::move(r); });
  if (!reply) {
    std::cerr << "klipora: this request needs the daemon (`klipora run`)\n";
    session.exitCode = kExitFailure;
    return std::nullopt;
  }
  return LibraryReply{std::move(*reply), false};
}

void libraryChangedHere(CliSession& session) {
  if (runningDaemon(session)) {
    (void)runLibraryRequest(session, app::makeRequest("reload"), 10);
    return;
  }
  auto env = session.environment();
  processing::ProcessingSaveCoalescer saver(session.context(), session.platform().mainLoop);
  auto processing = app::makeProcessingService(env, session.context(), saver, /*items=*/1);
  if (auto* categories = processing ? processing->customCategories() : nullptr) {
    categories->healArrivedCategories();
  }
}

}  // namespace klipora::cli
