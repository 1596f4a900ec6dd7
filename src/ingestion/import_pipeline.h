// ImportPipeline: turns one image file into one ScreenshotItem with its copy
// and thumbnail in the library. Every way in (folder watcher, reconciliation,
// bulk import, files opened by hand) goes through importScreenshot.
//
// The file is read once, in chunks: each is hashed and written to the library
// copy as it passes, so memory stays bounded for any size of file. A small
// file is also kept in memory to be examined and thumbnailed; a large one is
// examined from its copy. Only regular files are read (a named pipe or a
// device is refused, never waited on). The record is inserted only after the
// copy exists, and saved with the next batched save; a failure, a duplicate
// included, removes the copy and leaves no record. The names of the copy and
// the thumbnail are noted in the store before either is written, so that
// what a killed process leaves behind is known for its own (copies_in_flight.h). Files that are not images
// by their bytes are refused as unreadable. Every error carries its cause.
//
// Thread rules: call importScreenshot on the main thread. File work runs on
// the background executor; the claim, the insert and `done` run on the main
// executor. Several imports may run at once.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "ingestion/import_checksum_claims.h"
#include "ingestion/import_error.h"
#include "library/copies_in_flight.h"
#include "library/enums.h"
#include "library/model_context.h"
#include "library/storage_service.h"
#include "platform/clock.h"
#include "processing/processing_save_coalescer.h"

namespace klipora::ingestion {

class ImportPipeline {
 public:
  using Completion = std::function<void(ImportResult)>;

  ImportPipeline(library::StorageService& storage, library::ModelContext& context,
                 processing::ProcessingSaveCoalescer& saver, ImportChecksumClaims& claims,
                 Clock& clock, Executor& mainLoop, Executor& background);

  // Deletes the source after import, for automatically detected screenshots
  // only (never for bulk or manual imports). Mirrors the setting.
  void setDeleteOriginalAfterImport(bool value) { deleteOriginalAfterImport_ = value; }
  // Where the file work of a screenshot just taken (automaticWatch) runs, so
  // that it never waits behind a bulk import; null: with the rest. Several
  // at once (a drop into a watched folder) go with the rest.
  void setFreshWorker(Executor* worker) { freshWorker_ = worker; }
  // Files up to this size are examined and thumbnailed from memory; larger
  // ones from their library copy, so memory stays bounded by this per file.
  static constexpr size_t kInMemoryLimit = 16 << 20;
  void setInMemoryLimit(size_t bytes) { inMemoryLimit_ = bytes; }

  void importScreenshot(const std::string& path, library::ImportSourceType source,
                        std::optional<std::string> sourceAppBundleID,
                        std::optional<std::string> sourceAppName, Completion done);
  // Answers every import still waiting for its turn with `error` (on the
  // main executor); the ones already reading or copying finish.
  void dropWaiting(const ImportError& error);

 private:
  struct Job;
  struct Lane {
    int active = 0;
    std::deque<std::shared_ptr<Job>> waiting;
  };
  void start(std::shared_ptr<Job> job);
  void finished(Lane& lane);
  void copyAndHash(std::shared_ptr<Job> job);
  void discardCopy(Job& job);
  void claimOnMain(std::shared_ptr<Job> job);
  void makeItem(std::shared_ptr<Job> job);
  void insertOnMain(std::shared_ptr<Job> job);
  void fail(std::shared_ptr<Job> job, ImportError error, bool releaseClaim);

  library::StorageService& storage_;
  library::ModelContext& context_;
  processing::ProcessingSaveCoalescer& saver_;
  ImportChecksumClaims& claims_;
  Clock& clock_;
  Executor& mainLoop_;
  Executor& background_;
  Executor* freshWorker_ = nullptr;
  // Imports reading or copying now, and those waiting for their turn (main
  // thread). Screenshots just taken and all other imports each have a lane
  // of their own, so that neither waits behind the other.
  static constexpr int kInFlightPerLane = 4;
  Lane& laneOf(const Job& job);
  Lane freshLane_, bulkLane_;
  bool deleteOriginalAfterImport_ = false;
  size_t inMemoryLimit_ = kInMemoryLimit;
  library::CopiesInFlight copiesInFlight_;
};

// Lower-cased extension of a path, for the type check.
std::string lowerCasedExtension(const std::string& path);

}  // namespace klipora::ingestion
