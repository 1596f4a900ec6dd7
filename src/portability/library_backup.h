// LibraryBackup: a copy of a library that is safe to take while the daemon
// runs. The store is copied first with SQLite's online backup (one
// consistent state, while the daemon goes on writing); then the library
// folder is copied to match that state: every original and thumbnail the
// copied store names, and the markup edits, watermarks and signatures, but
// not the cache or the diagnostics. An item whose file was deleted between
// the two steps is taken out of the copied store too, and files imported
// after the first step are left out, so the backup never names a file it
// lacks. Layout of the backup folder: Klipora.store and Library/.
//
// Thread rules: the thread of the database it copies.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "library/database.h"
#include "platform/file_system.h"

namespace klipora::portability {

struct BackupReport {
  size_t items = 0;   // in the copied store
  size_t files = 0;   // copied from the library folder
  int64_t bytes = 0;  // of those files
  std::vector<std::string> vanished;  // ids of items deleted while copying
};

class LibraryBackup {
 public:
  using Progress = std::function<void(size_t done, size_t total)>;

  LibraryBackup(FileSystem& fs, library::Database& store, std::string libraryRoot);

  // Writes the backup into `folder`, which must not exist or be empty.
  // FailedPrecondition for a folder with something in it; otherwise the
  // file system's or SQLite's error, after removing what was written.
  Result<BackupReport> backupTo(const std::string& folder, const Progress& progress = {});

 private:
  Result<BackupReport> copyInto(const std::string& folder, const Progress& progress);

  FileSystem& fs_;
  library::Database& store_;
  std::string root_;
};

}  // namespace klipora::portability
