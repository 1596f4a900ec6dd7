// klipora folders [list] | add PATH [--recursive] |
// remove|enable|disable|pause|resume PATH|ID: the watched folders. The rows live in the store; a running daemon
// sees the change at once and watches the new set.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "library/record_json.h"
#include "library/records.h"

namespace klipora::cli {
namespace {

using library::WatchedFolder;

std::vector<std::shared_ptr<WatchedFolder>> Folders(CliSession& session) {
  auto rows = session.context().fetch<WatchedFolder>();
  if (!rows) return {};
  std::sort(rows->begin(), rows->end(),
            [](const auto& a, const auto& b) { return a->sortIndex < b->sortIndex; });
  return std::move(*rows);
}

// Saves the rows; a running daemon is told at once, so the folders it
// watches are the new set when the command returns.
int Save(CliSession& session) {
  if (Status s = session.context().save(); !s.ok()) {
    std::cerr << "klipora: could not save the watched folders: " << s.message() << "\n";
    return kExitFailure;
  }
  if (runningDaemon(session)) (void)runLibraryRequest(session, app::makeRequest("reload"), 10);
  return kExitOk;
}

int RunList(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto folders = Folders(session);
  if (json) {
    library::Json out = library::Json::array();
    for (const auto& f : folders) out.push_back(library::recordToJson(*f));
    printJson(out);
    return kExitOk;
  }
  if (folders.empty()) std::cout << "No watched folders; `klipora run` adds the usual ones.\n";
  auto& fs = session.platform().fileSystem;
  for (const auto& f : folders) {
    std::cout << f->id.uuidString() << "  " << f->path;
    std::vector<std::string> notes;
    if (!f->isEnabled) notes.push_back("disabled");
    if (f->pausedAt) notes.push_back("paused");
    if (f->includeSubfolders) notes.push_back("with subfolders");
    notes.push_back(f->isDefault ? "screenshots only" : "every image");
    if (!fs.attributes(f->path).value_or(FileAttributes{}).isDirectory) {
      notes.push_back("does not exist yet");
    }
    std::cout << "  (";
    for (size_t i = 0; i < notes.size(); ++i) std::cout << (i ? ", " : "") << notes[i];
    std::cout << ")\n";
  }
  return kExitOk;
}

int RunAdd(CliSession& session, const std::string& given, bool recursive) {
  if (!session.openLibrary()) return session.exitCode;
  const std::string path = session.platform().absolutePath(given);
  auto attributes = session.platform().fileSystem.attributes(path);
  if (!attributes) {
    std::cerr << "klipora: cannot watch " << path << ": " << attributes.error().message() << "\n";
    return kExitFailure;
  }
  if (!attributes->isDirectory) {
    std::cerr << "klipora: cannot watch " << path << ": not a folder\n";
    return kExitFailure;
  }
  auto folders = Folders(session);
  for (const auto& f : folders) {
    if (f->path == path) {
      std::cout << f->id.uuidString() << "  " << path << "  (already watched)\n";
      return kExitOk;
    }
  }
  auto row = std::make_shared<WatchedFolder>();
  row->displayName = lastPathComponent(path);
  row->path = path;
  row->includeSubfolders = recursive;
  row->sortIndex = folders.empty() ? 0 : folders.back()->sortIndex + 1;
  row->createdAt = session.platform().clock.now();
  // Files already there are not new screenshots.
  row->lastReconciledAt = row->createdAt;
  session.context().insert(row);
  if (int rc = Save(session); rc != kExitOk) return rc;
  std::cout << row->id.uuidString() << "  " << path << "  watched\n";
  return kExitOk;
}

int RunChange(CliSession& session, const std::string& action, const std::string& which) {
  if (!session.openLibrary()) return session.exitCode;
  const std::string path = session.platform().absolutePath(which);
  for (const auto& f : Folders(session)) {
    if (f->id.uuidString() != which && f->path != path && f->path != which) continue;
    if (action == "remove") {
      session.context().remove(f);
    } else if (action == "pause") {
      // What arrives while paused is found by the next sweep after resume.
      if (!f->pausedAt) f->pausedAt = session.platform().clock.now();
    } else if (action == "resume") {
      f->pausedAt.reset();
    } else {
      f->isEnabled = action == "enable";
    }
    if (int rc = Save(session); rc != kExitOk) return rc;
    std::cout << f->id.uuidString() << "  " << f->path << "  "
              << (action == "remove" ? "no longer watched" : action + "d") << "\n";
    return kExitOk;
  }
  std::cerr << "klipora: no watched folder is " << which << "\n";
  return kExitFailure;
}

}  // namespace

KLIPORA_COMMAND(folders) {
  auto* cmd = app.add_subcommand("folders", "Show or change the folders watched for screenshots");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the folders as JSON");
  auto* list = cmd->add_subcommand("list", "Show the watched folders");
  list->add_flag("--json", *json, "Print the folders as JSON");
  list->callback([&session, json] { session.exitCode = RunList(session, *json); });

  auto* add = cmd->add_subcommand("add", "Watch a folder: every new image in it is imported");
  auto path = std::make_shared<std::string>();
  auto recursive = std::make_shared<bool>(false);
  add->add_option("path", *path, "The folder")->required();
  add->add_flag("--recursive", *recursive, "Its subfolders too");
  add->callback(
      [&session, path, recursive] { session.exitCode = RunAdd(session, *path, *recursive); });

  for (const char* action : {"remove", "enable", "disable", "pause", "resume"}) {
    auto* sub = cmd->add_subcommand(action, std::string(action) + " a watched folder");
    auto which = std::make_shared<std::string>();
    sub->add_option("folder", *which, "Its path or id")->required();
    sub->callback(
        [&session, action, which] { session.exitCode = RunChange(session, action, *which); });
  }
  cmd->callback([&session, cmd, json] {
    if (cmd->get_subcommands().empty()) session.exitCode = RunList(session, *json);
  });
}

}  // namespace klipora::cli
