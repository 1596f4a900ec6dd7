// klipora retry ID… and klipora reprocess --all|--category C|--failed: put
// items back to pending. A running daemon processes them at once (a retry
// ahead of everything else); without one they wait for `klipora run`.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"

namespace klipora::cli {
namespace {

void SayWhenQueued(const app::Json& reply) {
  if (!reply.value("queued", false)) {
    std::cout << "They are processed when `klipora run` starts.\n";
  }
}

int RunRetry(CliSession& session, const std::vector<std::string>& ids, bool json) {
  auto request = app::makeRequest("retry");
  request["ids"] = ids;
  auto result = runLibraryRequest(session, request, 60);
  if (!result) return session.exitCode;
  const auto& reply = result->reply;
  if (!reply.contains("results")) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  if (json) {
    printJson(reply);
  } else {
    for (const auto& r : reply["results"]) {
      if (r.contains("state")) {
        std::cout << r.value("id", "") << "  queued again\n";
      } else {
        std::cerr << r.value("id", "") << ": " << r.value("error", "") << "\n";
      }
    }
    SayWhenQueued(reply);
  }
  return reply.value("ok", false) ? kExitOk : kExitFailure;
}

int RunReprocess(CliSession& session, bool all, bool failed, const std::string& category,
                 bool json) {
  if (int(all) + int(failed) + int(!category.empty()) != 1) {
    std::cerr << "klipora: reprocess needs exactly one of --all, --failed, --category C\n";
    return kExitUsage;
  }
  auto request = app::makeRequest("reprocess");
  request["which"] = all ? "all" : failed ? "failed" : "category";
  if (!category.empty()) request["category"] = category;
  auto result = runLibraryRequest(session, request, 600);
  if (!result) return session.exitCode;
  const auto& reply = result->reply;
  if (!reply.value("ok", false)) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  if (json) {
    printJson(reply);
  } else {
    std::cout << reply.value("count", 0) << " item(s) back to pending.\n";
    SayWhenQueued(reply);
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(retry) {
  auto* cmd = app.add_subcommand("retry", "Process items again, ahead of everything else");
  auto ids = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  cmd->add_option("ids", *ids, "Item ids")->required();
  cmd->add_flag("--json", *json, "Print the outcome as JSON");
  cmd->callback([&session, ids, json] { session.exitCode = RunRetry(session, *ids, *json); });
}

KLIPORA_COMMAND(reprocess) {
  auto* cmd = app.add_subcommand("reprocess", "Process many items again");
  struct Options {
    bool all = false, failed = false, json = false;
    std::string category;
  };
  auto o = std::make_shared<Options>();
  cmd->add_flag("--all", o->all, "Every item of the library (not the trash)");
  cmd->add_flag("--failed", o->failed, "Items whose processing failed");
  cmd->add_option("--category", o->category, "Items filed under this category (raw value)");
  cmd->add_flag("--json", o->json, "Print the outcome as JSON");
  cmd->callback([&session, o] {
    session.exitCode = RunReprocess(session, o->all, o->failed, o->category, o->json);
  });
}

}  // namespace klipora::cli
