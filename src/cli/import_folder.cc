// klipora import --folder DIR: every image in a folder and its subfolders,
// imported with source folderImport a batch at a time (so memory holds one
// batch), by the running daemon or, without one, on the store directly.
// A progress line on standard error; at the end one summary line, and each
// file skipped or failed with its reason. Originals stay where they are.
#include "cli/import_folder.h"

#include <unistd.h>

#include <iostream>

#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "ingestion/folder_import.h"
#include "ingestion/import_pipeline.h"
#include "library/screenshot_item_store.h"

namespace klipora::cli {
namespace {

using ingestion::FolderImportEntry;
using ingestion::FolderImportOutcome;

// Files read and copied at once; a batch is several of those.
constexpr size_t kImportConcurrency = 4;
constexpr size_t kBatch = 8 * kImportConcurrency;

class Progress {
 public:
  explicit Progress(size_t total) : total_(total), tty_(::isatty(STDERR_FILENO) == 1) {}
  void show(size_t done, const ingestion::FolderImportCounts& c, bool last) {
    if (total_ == 0 || (!tty_ && !last && ++batches_ % 10 != 0)) return;
    std::cerr << (tty_ ? "\r" : "") << "Importing " << done << "/" << total_
              << ": imported " << c.imported << ", duplicate " << c.duplicate << ", failed "
              << c.failed << (tty_ && !last ? "" : "\n") << std::flush;
  }

 private:
  size_t total_;
  bool tty_;
  int batches_ = 0;
};

// Imports one batch on the store; results in the order of `paths`.
std::vector<ingestion::ImportResult> ImportBatchDirectly(CliSession& session,
                                                         ingestion::ImportPipeline& pipeline,
                                                         const std::vector<std::string>& paths) {
  auto& loop = session.platform().mainLoop;
  std::vector<ingestion::ImportResult> results(paths.size());
  size_t remaining = paths.size();
  for (size_t i = 0; i < paths.size(); ++i) {
    pipeline.importScreenshot(paths[i], library::ImportSourceType::folderImport, std::nullopt,
                              std::nullopt, [&, i](ingestion::ImportResult result) {
                                results[i] = std::move(result);
                                if (--remaining == 0) loop.stop();
                              });
  }
  if (remaining > 0) loop.run();
  return results;
}

// Imports one batch through the daemon; false when it cannot be asked.
bool ImportBatchThroughDaemon(CliSession& session, const std::vector<std::string>& paths,
                              std::vector<FolderImportEntry>& entries) {
  auto request = app::makeRequest("import");
  request["paths"] = paths;
  request["source"] = "folderImport";
  auto reply = runLibraryRequest(session, request);
  if (!reply) return false;
  if (!reply->reply.contains("results")) {
    std::cerr << "klipora: " << replyError(reply->reply) << "\n";
    session.exitCode = kExitFailure;
    return false;
  }
  for (const auto& r : reply->reply["results"]) {
    FolderImportEntry entry;
    entry.path = r.value("path", "");
    if (r["id"].is_string()) {
      entry.outcome = FolderImportOutcome::imported;
      entry.id = UUID::Parse(r["id"].get<std::string>());
    } else {
      entry.outcome =
          r.value("duplicate", false) ? FolderImportOutcome::duplicate : FolderImportOutcome::failed;
      entry.reason = r.value("error", "");
    }
    entries.push_back(std::move(entry));
  }
  return true;
}

}  // namespace

int RunFolderImport(CliSession& session, const std::string& folderArg, bool json) {
  const std::string folder = session.platform().absolutePath(folderArg);
  if (!session.openLibrary()) return session.exitCode;
  auto listing = ingestion::listFolderForImport(session.platform().fileSystem, folder,
                                                session.libraryRoot().root, /*recursive=*/true);
  if (!listing) {
    std::cerr << "klipora: cannot import " << folder << ": " << listing.error().message() << "\n";
    return kExitFailure;
  }
  std::vector<FolderImportEntry> entries = std::move(listing->skipped);
  ingestion::FolderImportCounts counts;
  for (const auto& e : entries) counts.add(e.outcome);

  auto daemon = runningDaemon(session);
  const bool viaDaemon = daemon && !daemon->socket.empty();
  processing::ProcessingSaveCoalescer saver(session.context(), session.platform().mainLoop);
  library::ScreenshotItemStore itemStore(&session.context());
  ingestion::ImportChecksumClaims claims(itemStore);
  ingestion::ImportPipeline pipeline(session.storage(), session.context(), saver, claims,
                                     session.platform().clock, session.platform().mainLoop,
                                     session.platform().background);
  const auto& files = listing->files;
  Progress progress(files.size());
  for (size_t start = 0; start < files.size(); start += kBatch) {
    std::vector<std::string> batch(files.begin() + static_cast<ptrdiff_t>(start),
                                   files.begin() + static_cast<ptrdiff_t>(
                                                       std::min(files.size(), start + kBatch)));
    const size_t before = entries.size();
    if (viaDaemon) {
      if (!ImportBatchThroughDaemon(session, batch, entries)) return session.exitCode;
    } else {
      auto results = ImportBatchDirectly(session, pipeline, batch);
      // Saved batch by batch: an interruption loses at most the batch.
      if (Status saved = saver.flush(); !saved.ok()) {
        std::cerr << "\nklipora: could not save the library: " << saved.message() << "\n";
        return kExitFailure;
      }
      for (size_t i = 0; i < batch.size(); ++i) {
        entries.push_back(ingestion::folderImportEntry(batch[i], results[i]));
      }
    }
    for (size_t i = before; i < entries.size(); ++i) counts.add(entries[i].outcome);
    progress.show(start + batch.size(), counts, start + kBatch >= files.size());
  }

  if (json) {
    app::Json out = {{"folder", folder},
                     {"imported", counts.imported},
                     {"duplicate", counts.duplicate},
                     {"skipped", counts.skipped},
                     {"failed", counts.failed},
                     {"files", app::Json::array()}};
    for (const auto& e : entries) {
      out["files"].push_back({{"path", e.path},
                              {"outcome", ingestion::outcomeName(e.outcome)},
                              {"reason", e.reason.empty() ? app::Json() : app::Json(e.reason)},
                              {"id", e.id ? app::Json(e.id->uuidString()) : app::Json()}});
    }
    printJson(out);
  } else {
    for (const auto& e : entries) {
      if (e.outcome == FolderImportOutcome::skipped || e.outcome == FolderImportOutcome::failed) {
        std::cerr << e.path << ": " << ingestion::outcomeName(e.outcome) << ": " << e.reason
                  << "\n";
      }
    }
    std::cout << "Imported " << counts.imported << ", already in the library " << counts.duplicate
              << ", skipped " << counts.skipped << ", failed " << counts.failed << " from "
              << folder << ".\n";
    if (!viaDaemon && counts.imported > 0) {
      std::cout << "The new items are processed by `klipora run`.\n";
    }
  }
  return counts.failed > 0 ? kExitFailure : kExitOk;
}

}  // namespace klipora::cli
