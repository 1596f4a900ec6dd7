// klipora backup DIR [--json]: a copy of the store and the library folder
// that is safe to take while the daemon runs (portability/library_backup.h).
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/progress_line.h"
#include "portability/library_backup.h"

namespace klipora::cli {
namespace {

int RunBackup(CliSession& session, const std::string& folder, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto& fs = session.platform().fileSystem;
  const std::string target = session.platform().absolutePath(folder);
  portability::LibraryBackup backup(fs, session.context().database(),
                                    session.libraryRoot().root);
  portability::BackupReport report;
  {
    ProgressLine progress("Backing up");
    auto result = backup.backupTo(target, std::ref(progress));
    if (!result) {
      std::cerr << "klipora: cannot back up to " << target << ": " << result.error().message()
                << "\n";
      return kExitFailure;
    }
    report = std::move(*result);
  }
  // The user defaults (the pause, one-time repairs) go along.
  const std::string defaults = session.paths().defaultsPath;
  if (fs.exists(defaults)) {
    if (Status s = fs.copyFile(defaults, joinPath(target, lastPathComponent(defaults))); !s.ok()) {
      std::cerr << "klipora: warning: " << defaults << " was not copied: " << s.message() << "\n";
    }
  }
  if (json) {
    printJson({{"folder", target},
               {"items", report.items},
               {"files", report.files},
               {"bytes", report.bytes},
               {"vanished", report.vanished}});
    return kExitOk;
  }
  std::cout << "Backed up " << report.items << " item(s) and " << report.files << " file(s) ("
            << (report.bytes + 512 * 1024) / (1024 * 1024) << " MB) to " << target << ".\n";
  if (!report.vanished.empty()) {
    std::cout << report.vanished.size()
              << " item(s) deleted while the backup ran are not in it.\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(backup) {
  auto* cmd = app.add_subcommand(
      "backup", "Copy the store and the library folder to a new folder, safe while the daemon runs");
  auto folder = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  cmd->add_option("folder", *folder, "A new or empty folder")->required();
  cmd->add_flag("--json", *json, "Print the outcome as JSON");
  cmd->callback([&session, folder, json] {
    session.exitCode = RunBackup(session, *folder, *json);
  });
}

}  // namespace klipora::cli
