// klipora dedupe: merges duplicate screenshots (same checksum), custom
// categories (same name) and saved searches (same name and query).
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "intelligence/library_deduplicator.h"
#include "library/record_json.h"

namespace klipora::cli {
namespace {

using intelligence::LibraryDeduplicator;

int RunDedupe(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  struct Files {
    std::string libraryPath;
    std::optional<std::string> thumbnailPath;
  };
  std::vector<Files> removed;
  std::set<std::string> kept;
  LibraryDeduplicator::Hooks hooks;
  hooks.touched = [&](const library::ScreenshotItem& item, bool isRemoved) {
    if (isRemoved) {
      removed.push_back({item.libraryPath, item.thumbnailPath});
    } else {
      kept.insert(item.libraryPath);
      if (item.thumbnailPath) kept.insert(*item.thumbnailPath);
    }
  };
  auto report = LibraryDeduplicator::run(session.context(), hooks);
  if (!report) {
    std::cerr << "klipora: nothing merged: " << report.error().message() << "\n";
    return kExitFailure;
  }
  // The merged rows are gone; their copies of the same image go too, unless
  // a survivor points at the same file.
  for (const auto& f : removed) {
    if (f.libraryPath.empty() || kept.count(f.libraryPath)) continue;
    std::optional<std::string> thumbnail = f.thumbnailPath;
    if (thumbnail && kept.count(*thumbnail)) thumbnail.reset();
    if (Status s = session.storage().deleteDerivedFiles(f.libraryPath, thumbnail); !s.ok()) {
      std::cerr << "klipora: could not remove " << f.libraryPath << ": " << s.message() << "\n";
    }
  }
  if (json) {
    printJson({{"screenshots", report->screenshots},
               {"categories", report->categories},
               {"savedSearches", report->savedSearches}});
  } else if (report->isEmpty()) {
    std::cout << "No duplicates found.\n";
  } else {
    std::cout << "Merged " << report->screenshots << " screenshot(s), " << report->categories
              << " categor" << (report->categories == 1 ? "y" : "ies") << ", "
              << report->savedSearches << " saved search(es).\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(dedupe) {
  auto* cmd = app.add_subcommand("dedupe", "Merge duplicate screenshots, categories and saved "
                                           "searches");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the report as JSON");
  cmd->callback([&session, json] { session.exitCode = RunDedupe(session, *json); });
}

}  // namespace klipora::cli
