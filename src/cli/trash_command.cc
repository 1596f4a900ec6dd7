// klipora trash / restore / delete / empty-trash / sweep-trash: the trash of
// the library. Each goes through the daemon when it runs.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"

namespace klipora::cli {
namespace {

const char* Describe(const std::string& command, const std::string& outcome) {
  if (outcome == "done") {
    if (command == "trash") return "moved to the trash";
    if (command == "restore") return "restored";
    return "deleted for good";
  }
  if (outcome == "notFound") return "no such item";
  if (outcome == "alreadyInTrash") return "already in the trash";
  if (outcome == "notInTrash") return "not in the trash";
  return "failed";
}

int PrintOutcomes(const std::string& command, const app::Json& reply, bool json) {
  if (json) {
    printJson(reply);
  } else if (!reply.contains("outcomes")) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
  } else {
    for (const auto& o : reply["outcomes"]) {
      std::cout << o.value("id", "") << "  "
                << Describe(command, o.value("outcome", ""));
      if (o.contains("error")) std::cout << ": " << o.value("error", "");
      std::cout << "\n";
    }
    if (command == "empty-trash" && reply["outcomes"].empty()) std::cout << "The trash is empty.\n";
  }
  return reply.value("ok", false) ? kExitOk : kExitFailure;
}

int RunTrashCommand(CliSession& session, const std::string& command,
                    const std::vector<std::string>& ids, bool json) {
  app::Json request = app::makeRequest(command);
  if (command != "empty-trash") {
    request["ids"] = app::Json::array();
    for (const auto& id : ids) {
      auto uuid = UUID::Parse(id);
      if (!uuid) {
        std::cerr << "klipora: \"" << id << "\" is not an item id\n";
        return kExitUsage;
      }
      request["ids"].push_back(uuid->uuidString());
    }
  }
  auto result = runLibraryRequest(session, request);
  if (!result) return session.exitCode;
  return PrintOutcomes(command, result->reply, json);
}

bool Confirm(size_t count) {
  if (!::isatty(STDIN_FILENO)) return false;
  std::cout << "Delete " << count << " item(s) for good, with their files? This cannot be undone. "
            << "[y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

int RunSweep(CliSession& session, bool json) {
  auto result = runLibraryRequest(session, app::makeRequest("sweep-trash"));
  if (!result) return session.exitCode;
  const auto& reply = result->reply;
  if (json) {
    printJson(reply);
  } else if (reply.contains("removed")) {
    if (reply.value("retentionDays", 0) <= 0) {
      std::cout << "Automatic removal is off (retention " << reply.value("retentionDays", 0)
                << " day(s)); nothing removed.\n";
    } else {
      std::cout << "Removed " << reply.value("removed", 0) << " item(s) older than "
                << reply.value("retentionDays", 0) << " day(s) from the trash.\n";
    }
    if (reply.value("kept", 0) > 0) {
      std::cout << reply.value("kept", 0)
                << " item(s) stay in the trash: their files could not be removed (see the log).\n";
    }
  } else {
    std::cerr << "klipora: " << replyError(reply) << "\n";
  }
  return reply.value("ok", false) ? kExitOk : kExitFailure;
}

}  // namespace

KLIPORA_COMMAND(trash) {
  struct Spec {
    const char* name;
    const char* help;
  };
  for (Spec spec : {Spec{"trash", "Move items to the trash"},
                    Spec{"restore", "Take items out of the trash"},
                    Spec{"delete", "Delete items for good, with their files (asks unless --yes)"}}) {
    auto* cmd = app.add_subcommand(spec.name, spec.help);
    auto ids = std::make_shared<std::vector<std::string>>();
    auto json = std::make_shared<bool>(false);
    auto yes = std::make_shared<bool>(false);
    cmd->add_option("ids", *ids, "Item ids")->required();
    cmd->add_flag("--json", *json, "Print the outcome of each item as JSON");
    std::string name = spec.name;
    if (name == "delete") cmd->add_flag("--yes,-y", *yes, "Do not ask for confirmation");
    cmd->callback([&session, name, ids, json, yes] {
      if (name == "delete" && !*yes && !Confirm(ids->size())) {
        std::cerr << "klipora: nothing deleted (confirm on a terminal, or pass --yes)\n";
        session.exitCode = kExitUsage;
        return;
      }
      session.exitCode = RunTrashCommand(session, name, *ids, *json);
    });
  }
  auto* empty = app.add_subcommand("empty-trash", "Delete every item in the trash for good");
  auto emptyJson = std::make_shared<bool>(false);
  empty->add_flag("--json", *emptyJson, "Print the outcome of each item as JSON");
  empty->callback([&session, emptyJson] {
    session.exitCode = RunTrashCommand(session, "empty-trash", {}, *emptyJson);
  });
  auto* sweep = app.add_subcommand("sweep-trash", "Run one trash retention sweep now");
  auto sweepJson = std::make_shared<bool>(false);
  sweep->add_flag("--json", *sweepJson, "Print the sweep's report as JSON");
  sweep->callback([&session, sweepJson] { session.exitCode = RunSweep(session, *sweepJson); });
}

}  // namespace klipora::cli
