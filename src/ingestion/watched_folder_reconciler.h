// WatchedFolderReconciler: the sweep that finds what the watcher missed in
// the watched folders (files written while Klipora was closed, paused, or
// the folder unavailable). It only looks: each folder's listing is filtered
// down to the image files newer than the folder's cut-off (`lastReconciledAt`)
// that the library does not hold and the user did not throw away; the
// caller decides what to import.
//
// Every entry seen is counted under the first rule that rejects it, in this
// order: `ext` (not an accepted image extension), `library` (inside the
// library folder), `notFile` (not a regular file), `since` (neither its
// modification nor its birth time reaches the cut-off), `known` (an item
// was imported from this path), `tombstoned` (its original was removed from
// the library for good), `notScreenshot` (a screenshot folder of the system,
// where a file must show that a screenshot tool made it). The rules that ask
// the store or read the file come last, so they run only for the few files
// that are new.
//
// Thread rules: the thread of the context (main thread).
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/records.h"
#include "platform/file_system.h"

namespace klipora::ingestion {

struct ScanStats {
  int seen = 0, accepted = 0, ext = 0, library = 0, known = 0, tombstoned = 0, notFile = 0,
      notScreenshot = 0, since = 0;
  bool capped = false;  // more files were accepted than `cap`; the rest wait
};

struct ScanRequest {
  std::string folderPath;
  std::string displayName;  // for the log; the last path component when empty
  bool recursive = false;
  std::optional<Date> since;  // absent: every file counts
  std::string libraryPrefix;
  std::function<bool(const std::string& path)> isKnown;
  std::function<bool(const std::string& path)> isTombstoned;
  size_t cap = 10000;
  bool requireScreenshotEvidence = false;
};

// Accepted file paths of one folder, sorted. Logs the scan and its stats.
std::vector<std::string> scan(FileSystem& fileSystem, const ScanRequest& request,
                              ScanStats* stats = nullptr);

struct ReconciliationFolderResult {
  library::WatchedFolder folder;  // a copy of the row as it was scanned
  std::vector<std::string> candidates;
  bool complete = true;  // false when the scan stopped at its cap
};

struct ReconciliationResult {
  std::vector<ReconciliationFolderResult> folders;
  int totalCount() const;
};

class WatchedFolderReconciler {
 public:
  static constexpr size_t kScanCap = 10000;

  explicit WatchedFolderReconciler(FileSystem& fileSystem) : fileSystem_(fileSystem) {}

  // Scans each folder from its cut-off (from the beginning when `force`).
  // Folders without a candidate are left out of the result.
  ReconciliationResult reconcile(const std::vector<library::WatchedFolder>& folders,
                                 const std::string& libraryPath, library::ModelContext& context,
                                 bool force);

 private:
  FileSystem& fileSystem_;
};

}  // namespace klipora::ingestion
