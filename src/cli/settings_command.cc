// klipora settings [--json] / klipora settings set FIELD VALUE
// klipora settings export [FILE] / klipora settings import FILE [--json]
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "library/record_json.h"
#include "portability/settings_export.h"

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

std::string Home(CliSession& session) {
  const char* home = session.platform().getenv("HOME");
  return home ? home : "";
}

// FILE, or Klipora-Settings.json inside it when FILE is a folder; "-" is
// standard output.
int RunExportSettings(CliSession& session, std::string file) {
  if (!session.openLibrary()) return session.exitCode;
  auto& fs = session.platform().fileSystem;
  auto content = portability::exportSettings(session.context(), session.platform().clock,
                                             Home(session));
  if (!content) {
    std::cerr << "klipora: cannot read the settings: " << content.error().message() << "\n";
    return kExitFailure;
  }
  std::string text = content->dump(2, ' ', false, app::Json::error_handler_t::replace) + "\n";
  if (file == "-") {
    std::cout << text;
    return kExitOk;
  }
  file = session.platform().absolutePath(file.empty() ? portability::kSettingsFileName : file);
  if (fs.attributes(file).value_or(FileAttributes{}).isDirectory) {
    file = joinPath(file, portability::kSettingsFileName);
  }
  if (Status s = fs.writeFileAtomically(file, text); !s.ok()) {
    std::cerr << "klipora: cannot write " << file << ": " << s.message() << "\n";
    return kExitFailure;
  }
  std::cout << "Wrote the settings to " << file << "\n";
  return kExitOk;
}

int RunImportSettings(CliSession& session, const std::string& given, bool json) {
  auto& fs = session.platform().fileSystem;
  const std::string file = session.platform().absolutePath(given);
  auto attributes = fs.attributes(file);
  if (!attributes || !attributes->isRegularFile) {
    std::cerr << "klipora: cannot read " << file << ": "
              << (attributes ? "not a regular file" : attributes.error().message()) << "\n";
    return kExitFailure;
  }
  auto text = fs.readFile(file);
  if (!text) {
    std::cerr << "klipora: cannot read " << file << ": " << text.error().message() << "\n";
    return kExitFailure;
  }
  app::Json content;
  try {
    content = app::Json::parse(*text);
  } catch (const app::Json::parse_error& e) {
    std::cerr << "klipora: " << file << " is not valid JSON (" << e.what() << "); nothing changed\n";
    return kExitFailure;
  }
  if (!session.openLibrary()) return session.exitCode;
  auto summary = portability::importSettings(session.context(), session.platform().clock,
                                             content, Home(session));
  if (!summary) {
    std::cerr << "klipora: " << file << ": " << summary.error().message() << "; nothing changed\n";
    return kExitFailure;
  }
  for (const auto& w : summary->warnings) std::cerr << "klipora: warning: " << file << ": " << w << "\n";
  if (!summary->changes.empty()) libraryChangedHere(session);
  if (json) {
    printJson({{"file", file}, {"changes", summary->changes}, {"warnings", summary->warnings}});
    return kExitOk;
  }
  if (summary->changes.empty()) {
    std::cout << "Nothing changed: the library already has these settings.\n";
  } else {
    std::cout << summary->changes.size() << " change(s):\n";
    for (const auto& c : summary->changes) std::cout << "  " << c << "\n";
  }
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
  auto* exportCmd = cmd->add_subcommand(
      "export", "Write the settings, folders, tags, categories and searches to a file");
  auto exportFile = std::make_shared<std::string>();
  exportCmd->add_option("file", *exportFile,
                        "File or folder to write (default ./Klipora-Settings.json; - for stdout)");
  exportCmd->callback(
      [&session, exportFile] { session.exitCode = RunExportSettings(session, *exportFile); });
  auto* importCmd =
      cmd->add_subcommand("import", "Merge a settings file into this library and say what changed");
  auto importFile = std::make_shared<std::string>();
  auto importJson = std::make_shared<bool>(false);
  importCmd->add_option("file", *importFile, "A Klipora-Settings.json")->required();
  importCmd->add_flag("--json", *importJson, "Print the changes and warnings as JSON");
  importCmd->callback([&session, importFile, importJson] {
    session.exitCode = RunImportSettings(session, *importFile, *importJson);
  });
  cmd->callback([&session, cmd, json] {
    if (cmd->get_subcommands().empty()) session.exitCode = RunShowSettings(session, *json);
  });
}

}  // namespace klipora::cli
