// klipora settings [--json] / klipora settings set FIELD VALUE
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/record_json.h"

namespace klipora::cli {
namespace {

int RunShowSettings(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto record = library::recordToJson(session.settings());
  if (json) {
    printJson(record);
    return kExitOk;
  }
  for (const auto& [key, value] : record.items()) {
    std::cout << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump())
              << "\n";
  }
  return kExitOk;
}

int RunSetSetting(CliSession& session, const std::string& field, const std::string& value) {
  if (!session.openLibrary()) return session.exitCode;
  Status s = library::assignFieldFromText(session.settings(), field, value);
  if (!s.ok()) {
    std::cerr << "klipora: " << s.message() << "\n";
    return kExitUsage;
  }
  if (Status saved = session.context().save(); !saved.ok()) {
    std::cerr << "klipora: could not save the settings: " << saved.message() << "\n";
    return kExitFailure;
  }
  auto record = library::recordToJson(session.settings());
  std::cout << field << ": " << record[field].dump() << "\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(settings) {
  auto* cmd = app.add_subcommand("settings", "Show or change the library's settings");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the settings as JSON");
  auto* set = cmd->add_subcommand("set", "Change one setting (\"null\" clears an optional one)");
  auto field = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  set->add_option("field", *field, "Field name, as `klipora settings` shows it")->required();
  set->add_option("value", *value, "New value")->required();
  set->callback(
      [&session, field, value] { session.exitCode = RunSetSetting(session, *field, *value); });
  cmd->callback([&session, cmd, json] {
    if (cmd->get_subcommands().empty()) session.exitCode = RunShowSettings(session, *json);
  });
}

}  // namespace klipora::cli
