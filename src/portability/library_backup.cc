#include "portability/library_backup.h"

#include <sqlite3.h>

#include <set>

namespace klipora::portability {
namespace {

// Copies every page of `source` into the file `path` with SQLite's online
// backup: one read transaction, so one consistent state, and in WAL mode it
// does not hold the daemon's writes up.
Status onlineBackup(sqlite3* source, const std::string& path) {
  sqlite3* target = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &target,
                           SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  Status result;
  if (rc != SQLITE_OK) {
    result = Status::IoError("cannot create " + path + ": " +
                             (target ? sqlite3_errmsg(target) : sqlite3_errstr(rc)));
  } else if (sqlite3_backup* backup = sqlite3_backup_init(target, "main", source, "main")) {
    do {
      rc = sqlite3_backup_step(backup, -1);
      if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) sqlite3_sleep(50);
    } while (rc == SQLITE_OK || rc == SQLITE_BUSY || rc == SQLITE_LOCKED);
    sqlite3_backup_finish(backup);
    if (rc != SQLITE_DONE) {
      std::string message = "cannot copy the store to " + path + ": " + sqlite3_errstr(rc);
      result = (rc & 0xFF) == SQLITE_FULL ? Status::NoSpace(message) : Status::IoError(message);
    }
  } else {
    result = Status::IoError("cannot copy the store to " + path + ": " + sqlite3_errmsg(target));
  }
  sqlite3_close_v2(target);
  return result;
}

constexpr char kStoreName[] = "Klipora.store";

// Folders of the library that a backup leaves out or fills item by item.
const std::set<std::string> kNotWalked = {"Cache", "Diagnostics", "Originals", "Thumbnails"};

// Every file under `folder` (recursively), as paths relative to it.
Status listFiles(FileSystem& fs, const std::string& folder, const std::string& prefix,
                 std::vector<std::string>& out) {
  ASSIGN_OR_RETURN(auto names, fs.listDirectory(joinPath(folder, prefix)));
  for (const auto& name : names) {
    std::string relative = prefix.empty() ? name : joinPath(prefix, name);
    if (prefix.empty() && kNotWalked.count(name)) continue;
    auto attributes = fs.attributes(joinPath(folder, relative));
    if (!attributes) continue;  // gone meanwhile
    if (attributes->isDirectory) {
      RETURN_IF_ERROR(listFiles(fs, folder, relative, out));
    } else if (attributes->isRegularFile) {
      out.push_back(relative);
    }
  }
  return Status::Ok();
}

// Removes a backup folder that failed half-way: only what this run wrote.
void removeTree(FileSystem& fs, const std::string& path) {
  if (auto names = fs.listDirectory(path)) {
    for (const auto& name : *names) removeTree(fs, joinPath(path, name));
  }
  (void)fs.removeFile(path);
}

}  // namespace

LibraryBackup::LibraryBackup(FileSystem& fs, library::Database& store, std::string libraryRoot)
    : fs_(fs), store_(store), root_(std::move(libraryRoot)) {}

Result<BackupReport> LibraryBackup::backupTo(const std::string& folder, const Progress& progress) {
  if (auto names = fs_.listDirectory(folder); names && !names->empty()) {
    return Err(Status::FailedPrecondition(folder + " is not empty; back up into a new folder"));
  }
  RETURN_IF_ERROR(fs_.createDirectories(folder).WithContext("cannot create " + folder));
  auto report = copyInto(folder, progress);
  if (!report) removeTree(fs_, folder);
  return report;
}

Result<BackupReport> LibraryBackup::copyInto(const std::string& folder, const Progress& progress) {
  const std::string storePath = joinPath(folder, kStoreName);
  const std::string partial = storePath + ".partial";
  if (Status s = onlineBackup(store_.handle(), partial); !s.ok()) {
    (void)fs_.removeFile(partial);
    return Err(s);
  }
  RETURN_IF_ERROR(fs_.rename(partial, storePath));
  ASSIGN_OR_RETURN(auto copy, library::Database::open(storePath, /*create=*/false));
  ASSIGN_OR_RETURN(auto rows,
                   copy->query("SELECT \"id\", \"libraryPath\", \"thumbnailPath\" FROM "
                               "\"ScreenshotItem\""));
  std::vector<std::string> rest;
  if (fs_.exists(root_)) RETURN_IF_ERROR(listFiles(fs_, root_, "", rest));

  BackupReport report;
  report.items = rows.size();
  const size_t total = rows.size() + rest.size();
  size_t done = 0;
  const std::string library = joinPath(folder, "Library");
  // The place of a library file in the backup: the same place under Library/.
  auto target = [&](const std::string& path, const char* subfolder) {
    std::string relative = path.starts_with(root_ + "/")
                               ? path.substr(root_.size() + 1)
                               : joinPath(subfolder, lastPathComponent(path));
    return joinPath(library, relative);
  };
  auto copyOne = [&](const std::string& from, const std::string& to) -> Status {
    RETURN_IF_ERROR(fs_.createDirectories(deletingLastPathComponent(to)));
    RETURN_IF_ERROR(fs_.copyFile(from, to).WithContext(from));
    ++report.files;
    report.bytes += fs_.attributes(to).value_or(FileAttributes{}).size;
    return Status::Ok();
  };
  for (const auto& row : rows) {
    const auto* id = std::get_if<std::string>(&row[0]);
    const auto* original = std::get_if<std::string>(&row[1]);
    const auto* thumbnail = std::get_if<std::string>(&row[2]);
    if (id && original && !original->empty()) {
      if (!fs_.exists(*original)) {
        // Deleted after the store was copied: the copy forgets the item too.
        report.vanished.push_back(*id);
        auto deleted = copy->execute("DELETE FROM \"ScreenshotItem\" WHERE \"id\" = ?", {*id});
        if (!deleted) return Err(deleted.error());
      } else {
        RETURN_IF_ERROR(copyOne(*original, target(*original, "Originals")));
      }
    }
    if (thumbnail && fs_.exists(*thumbnail)) {
      // A thumbnail can be made again; one that cannot be copied is skipped.
      (void)copyOne(*thumbnail, target(*thumbnail, "Thumbnails"));
    }
    if (progress) progress(++done, total);
  }
  for (const auto& relative : rest) {
    const std::string from = joinPath(root_, relative);
    if (fs_.exists(from)) RETURN_IF_ERROR(copyOne(from, joinPath(library, relative)));
    if (progress) progress(++done, total);
  }
  report.items -= report.vanished.size();
  return report;
}

}  // namespace klipora::portability
