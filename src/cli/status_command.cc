// klipora status: whether the daemon runs, which library, and how many items
// are in each processing state.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"

namespace klipora::cli {
namespace {

int RunStatus(CliSession& session, bool json) {
  auto result = runLibraryRequest(session, app::makeRequest("status"), 30);
  if (!result) return session.exitCode;
  auto& reply = result->reply;
  if (!reply.value("ok", false)) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  if (!result->viaDaemon) {
    // Say so when a daemon holds the lock but did not answer.
    if (auto daemon = runningDaemon(session)) {
      reply["daemon"] = {{"running", true}, {"pid", daemon->pid}, {"reachable", false}};
    }
  }
  if (json) {
    printJson(reply);
    return kExitOk;
  }
  const auto& daemon = reply["daemon"];
  if (daemon.value("running", false)) {
    std::cout << "Daemon: running (pid " << daemon.value("pid", 0) << ")";
    if (daemon.value("paused", false)) std::cout << ", paused: the library folder is missing";
    if (daemon.contains("reachable")) std::cout << ", not answering";
    std::cout << "\n";
    if (daemon.contains("queue")) {
      const auto& q = daemon["queue"];
      std::cout << "Queue: " << q["bulk"].value("waiting", 0) + q["bulk"].value("running", 0)
                << " in the bulk lane (" << q["bulk"].value("running", 0) << " running), "
                << q["priority"].value("waiting", 0) + q["priority"].value("running", 0)
                << " in the priority lane, " << q.value("inFlight", 0) << " in flight";
      if (q.value("lateOCRPending", 0) > 0) {
        std::cout << ", " << q.value("lateOCRPending", 0) << " waiting for late text";
      }
      if (q.value("retryPassRunning", false)) std::cout << ", text retry pass running";
      std::cout << "\n";
    }
    if (daemon.contains("folders")) {
      const auto& f = daemon["folders"];
      std::cout << "Watching: " << f["watched"].size() << " folder(s)";
      if (!f["awaited"].empty()) std::cout << ", " << f["awaited"].size() << " not there yet";
      if (!daemon.value("watching", false)) std::cout << " (automatic import is off)";
      std::cout << "\n";
    }
  } else {
    std::cout << "Daemon: not running\n";
  }
  if (reply["pause"].is_string()) {
    std::cout << "New screenshots: " << reply["pause"].get<std::string>() << "\n";
  }
  const auto& library = reply["library"];
  std::cout << "Library: " << library.value("root", "") << "\n";
  if (library["fallback"].is_object()) {
    std::cout << "  (the chosen folder " << library["fallback"].value("configuredPath", "")
              << " is unavailable: " << library["fallback"].value("reason", "") << ")\n";
  }
  std::cout << "Store: " << library.value("store", "") << "\n";
  const auto& items = reply["items"];
  std::cout << "Items: " << items.value("live", 0) << " (" << items.value("trashed", 0)
            << " in the trash)\n";
  for (const auto& [state, count] : items["states"].items()) {
    std::cout << "  " << state << ": " << count.get<int64_t>() << "\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(status) {
  auto* cmd = app.add_subcommand("status", "Show the daemon, the library and its item counts");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the status as JSON");
  cmd->callback([&session, json] { session.exitCode = RunStatus(session, *json); });
}

}  // namespace klipora::cli
