// klipora scan [--force] [FOLDER…]: a sweep of the watched folders now, for
// the screenshots written while nothing watched them. klipora pending
// [accept|dismiss]: the sweep's result held for the user when it found more
// files than the bulk-import threshold. A running daemon does the work;
// without one, scan runs the library's engine in this command for one pass
// (the new items wait for `klipora run` to be processed).
#include <CLI/CLI.hpp>
#include <iostream>

#include "app/app_coordinator.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"

namespace klipora::cli {
namespace {

// Runs one request against an engine started in this process.
std::optional<app::Json> RunOnOwnEngine(CliSession& session, const app::Json& request) {
  if (!session.openLibrary()) return std::nullopt;
  auto& platform = session.platform();
  app::AppCoordinator coordinator(session.environment(), &session.context());
  coordinator.start();
  app::ControlRequestHandler handler(storeRequestTarget(session, &coordinator));
  std::optional<app::Json> reply;
  handler.handle(request, [&](app::Json r) {
    reply = std::move(r);
    platform.mainLoop.stop();
  });
  if (!reply) platform.mainLoop.run();
  std::optional<Status> saved;
  coordinator.shutDown([&](Status s) {
    saved = s;
    platform.mainLoop.stop();
  });
  if (!saved) platform.mainLoop.run();
  coordinator.stop();
  if (saved && !saved->ok()) {
    std::cerr << "klipora: could not save the library: " << saved->message() << "\n";
    session.exitCode = kExitFailure;
    return std::nullopt;
  }
  return reply;
}

std::optional<app::Json> Send(CliSession& session, const app::Json& request, bool ownEngine) {
  if (auto daemon = runningDaemon(session); daemon && !daemon->socket.empty()) {
    auto result = runLibraryRequest(session, request, 3600);
    if (!result) return std::nullopt;
    return result->reply;
  }
  if (!ownEngine) {
    return app::Json{{"ok", true}, {"outcome", "nothingNew"}, {"pending", 0}, {"noDaemon", true}};
  }
  return RunOnOwnEngine(session, request);
}

int Report(CliSession& session, const app::Json& reply, bool json, bool viaDaemon) {
  (void)session;
  if (json) {
    printJson(reply);
  }
  const std::string outcome = reply.value("outcome", "");
  if (!reply.contains("outcome")) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  for (const auto& f : reply.value("failures", app::Json::array())) {
    std::cerr << f.value("path", "") << ": " << f.value("error", "") << "\n";
  }
  if (!json) {
    if (outcome == "skipped") {
      std::cout << "Not scanned: " << reply.value("message", "") << ".\n";
    } else if (outcome == "aborted") {
      std::cerr << "klipora: " << reply.value("error", "the scan stopped") << "\n";
    } else if (outcome == "pending") {
      std::cout << reply.value("found", 0) << " new screenshot(s) found, more than the "
                << "bulk-import threshold (" << reply.value("threshold", 0) << ").\n";
      if (viaDaemon) {
        std::cout << "Import them with `klipora pending accept`, or leave them with "
                     "`klipora pending dismiss`.\n";
      } else {
        std::cout << "Import them all with `klipora scan --force`.\n";
      }
    } else if (outcome == "imported") {
      std::cout << "Imported " << reply.value("imported", 0) << ", already in the library "
                << reply.value("duplicates", 0) << ", failed " << reply.value("failed", 0)
                << ".\n";
    } else if (outcome == "dismissed") {
      std::cout << "Dismissed " << reply.value("pending", 0) << " file(s); the next scan finds "
                << "them again.\n";
    } else if (reply.contains("pending")) {
      if (reply.value("pending", 0) == 0) {
        std::cout << "Nothing is pending.\n";
      } else {
        std::cout << reply.value("pending", 0) << " file(s) wait for `klipora pending accept`:\n";
        for (const auto& f : reply["folders"]) {
          std::cout << "  " << f.value("count", 0) << "  " << f.value("path", "") << "\n";
        }
      }
    } else {
      std::cout << "No new screenshots.\n";
    }
  }
  return reply.value("ok", false) ? kExitOk : kExitFailure;
}

}  // namespace

KLIPORA_COMMAND(scan) {
  auto* cmd = app.add_subcommand(
      "scan", "Look through the watched folders now for screenshots not in the library");
  struct Options {
    std::vector<std::string> folders;
    bool force = false, json = false;
  };
  auto options = std::make_shared<Options>();
  cmd->add_option("folders", options->folders, "Watched folders to scan (default: all)");
  cmd->add_flag("--force", options->force,
                "Import every file the library lacks, however old, whatever the threshold");
  cmd->add_flag("--json", options->json, "Print the outcome as JSON");
  cmd->callback([&session, options] {
    auto request = app::makeRequest("scan");
    std::vector<std::string> folders;
    for (const auto& f : options->folders) folders.push_back(session.platform().absolutePath(f));
    request["folders"] = folders;
    request["force"] = options->force;
    const bool viaDaemon = runningDaemon(session).has_value();
    auto reply = Send(session, request, /*ownEngine=*/true);
    if (!reply) {
      if (session.exitCode == 0) session.exitCode = kExitFailure;
      return;
    }
    session.exitCode = Report(session, *reply, options->json, viaDaemon);
  });
}

KLIPORA_COMMAND(pending) {
  auto* cmd = app.add_subcommand(
      "pending", "Show, import (accept) or drop (dismiss) the files a scan held back");
  struct Options {
    std::string action = "show";
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  cmd->add_option("action", options->action, "show, accept or dismiss")
      ->check(CLI::IsMember({"show", "accept", "dismiss"}));
  cmd->add_flag("--json", options->json, "Print the outcome as JSON");
  cmd->callback([&session, options] {
    auto request = app::makeRequest("pending");
    request["action"] = options->action;
    auto reply = Send(session, request, /*ownEngine=*/false);
    if (!reply) {
      if (session.exitCode == 0) session.exitCode = kExitFailure;
      return;
    }
    session.exitCode = Report(session, *reply, options->json, true);
  });
}

}  // namespace klipora::cli
