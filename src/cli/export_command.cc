// klipora export DIR [--originals|--edited] [--json]: the library as a folder
// of images per category with library.json and library.csv beside them.
// klipora import-export DIR: such a folder taken back into a library.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "cli/progress_line.h"
#include "portability/export_import.h"
#include "portability/library_export.h"

namespace klipora::cli {
namespace {

int RunExport(CliSession& session, const std::string& folder, bool originals, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  portability::LibraryExporter exporter(session.platform().fileSystem, session.platform().clock,
                                        session.context(), session.libraryRoot().root);
  const std::string target = session.platform().absolutePath(folder);
  auto variant = originals ? portability::ExportVariant::originals
                           : portability::ExportVariant::edited;
  portability::LibraryExportReport report;
  {
    ProgressLine progress("Exporting");
    auto result = exporter.exportTo(target, variant, std::ref(progress));
    if (!result) {
      std::cerr << "klipora: " << result.error().message() << "\n";
      return kExitFailure;
    }
    report = std::move(*result);
  }
  for (const auto& item : report.items) {
    if (item.outcome == portability::ExportOutcome::failed) std::cerr << item.error << "\n";
  }
  if (json) {
    app::Json items = app::Json::array();
    for (const auto& item : report.items) {
      items.push_back({{"id", item.id},
                       {"file", item.file},
                       {"outcome", portability::outcomeName(item.outcome)},
                       {"error", item.error.empty() ? app::Json(nullptr) : app::Json(item.error)}});
    }
    printJson({{"folder", target},
               {"variant", originals ? "originals" : "edited"},
               {"written", report.written},
               {"alreadyThere", report.alreadyThere},
               {"failed", report.failed},
               {"items", items}});
  } else {
    std::cout << "Exported " << report.written + report.alreadyThere << " item(s) to " << target
              << " (" << report.written << " written, " << report.alreadyThere
              << " already there";
    if (report.failed) std::cout << ", " << report.failed << " failed";
    std::cout << ").\n";
  }
  return report.failed ? kExitFailure : kExitOk;
}

int RunImportExport(CliSession& session, const std::string& folder, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  portability::ExportImporter importer(session.storage(), session.platform().clock,
                                       session.context());
  const std::string source = session.platform().absolutePath(folder);
  portability::ExportImportReport report;
  {
    ProgressLine progress("Importing");
    auto result = importer.importFrom(source, std::ref(progress));
    if (!result) {
      std::cerr << "klipora: " << result.error().message() << "\n";
      return kExitFailure;
    }
    report = std::move(*result);
  }
  for (const auto& w : report.warnings) std::cerr << "klipora: warning: " << w << "\n";
  for (const auto& item : report.items) {
    if (item.outcome == portability::ExportImportOutcome::failed) std::cerr << item.error << "\n";
  }
  // A running daemon processes the items that were not finished at once.
  if (report.imported > 0) libraryChangedHere(session);
  if (json) {
    app::Json items = app::Json::array();
    for (const auto& item : report.items) {
      items.push_back({{"file", item.file},
                       {"id", item.id.empty() ? app::Json(nullptr) : app::Json(item.id)},
                       {"outcome", portability::outcomeName(item.outcome)},
                       {"error", item.error.empty() ? app::Json(nullptr) : app::Json(item.error)}});
    }
    printJson({{"folder", source},
               {"imported", report.imported},
               {"duplicates", report.duplicates},
               {"failed", report.failed},
               {"warnings", report.warnings},
               {"items", items}});
  } else {
    std::cout << "Imported " << report.imported << " item(s) from " << source;
    if (report.duplicates) std::cout << ", " << report.duplicates << " already in the library";
    if (report.failed) std::cout << ", " << report.failed << " failed";
    std::cout << ".\n";
  }
  return report.failed ? kExitFailure : kExitOk;
}

}  // namespace

KLIPORA_COMMAND(export) {
  auto* cmd = app.add_subcommand(
      "export", "Export the library to a folder: images per category, library.json, library.csv");
  auto folder = std::make_shared<std::string>();
  auto originals = std::make_shared<bool>(false);
  auto edited = std::make_shared<bool>(false);
  auto json = std::make_shared<bool>(false);
  cmd->add_option("folder", *folder, "Folder to write (made when missing; a second run resumes)")
      ->required();
  auto* o = cmd->add_flag("--originals", *originals, "Export the originals, without the edits");
  cmd->add_flag("--edited", *edited, "Export the images as edited (the default)")->excludes(o);
  cmd->add_flag("--json", *json, "Print the outcome of each item as JSON");
  cmd->callback([&session, folder, originals, json] {
    session.exitCode = RunExport(session, *folder, *originals, *json);
  });
}

KLIPORA_COMMAND(import_export) {
  auto* cmd = app.add_subcommand("import-export",
                                 "Import a folder written by `klipora export` into the library");
  auto folder = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  cmd->add_option("folder", *folder, "The exported folder")->required();
  cmd->add_flag("--json", *json, "Print the outcome of each item as JSON");
  cmd->callback([&session, folder, json] {
    session.exitCode = RunImportExport(session, *folder, *json);
  });
}

}  // namespace klipora::cli
