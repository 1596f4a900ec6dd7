// klipora pause 10m|1h|tomorrow|indefinitely and klipora resume: the global
// pause of new screenshots. A running daemon takes the change at once; the
// value is kept with the user defaults, so a daemon started later sees it.
#include <CLI/CLI.hpp>
#include <charconv>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"

namespace klipora::cli {
namespace {

// "10m", "1h", "90s", "2d", "tomorrow", "indefinitely"; null when unreadable.
app::Json ParseUntil(const std::string& text) {
  if (text == "tomorrow" || text == "indefinitely") return text;
  double amount = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount);
  if (error != std::errc()) return nullptr;
  const size_t used = static_cast<size_t>(end - text.data());
  const std::string unit = text.substr(used);
  double scale = unit == "s"                   ? 1
                 : unit == "m" || unit.empty() ? 60
                 : unit == "h"                 ? 3600
                 : unit == "d"                 ? 86400
                                               : 0;
  if (scale == 0 || !(amount > 0)) return nullptr;
  return amount * scale;
}

int RunPause(CliSession& session, const std::string& command, const std::string& until, bool json) {
  auto request = app::makeRequest(command);
  if (command == "pause") {
    request["until"] = ParseUntil(until);
    if (request["until"].is_null()) {
      std::cerr << "klipora: cannot read \"" << until
                << "\" as a time: use 10m, 1h, 2d, tomorrow or indefinitely\n";
      return kExitUsage;
    }
  }
  auto result = runLibraryRequest(session, request, 30);
  if (!result) return session.exitCode;
  const auto& reply = result->reply;
  if (!reply.value("ok", false)) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  if (json) {
    printJson(reply);
  } else if (reply["pause"].is_string()) {
    std::cout << reply["pause"].get<std::string>() << ".\n";
  } else {
    std::cout << "Watching for new screenshots.\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(pause) {
  auto* cmd = app.add_subcommand("pause", "Pause the import of new screenshots");
  auto until = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  cmd->add_option("until", *until, "10m, 1h, 2d, tomorrow or indefinitely")->required();
  cmd->add_flag("--json", *json, "Print the outcome as JSON");
  cmd->callback(
      [&session, until, json] { session.exitCode = RunPause(session, "pause", *until, *json); });
}

KLIPORA_COMMAND(resume) {
  auto* cmd = app.add_subcommand("resume", "Import new screenshots again after a pause");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the outcome as JSON");
  cmd->callback([&session, json] { session.exitCode = RunPause(session, "resume", "", *json); });
}

}  // namespace klipora::cli
