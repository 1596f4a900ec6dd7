#include "crash_library_check.h"

#include <sqlite3.h>

#include <filesystem>
#include <sstream>

namespace klipora::crash {
namespace {

namespace fs = std::filesystem;

struct Row {
  std::string id, checksum, libraryPath, thumbnailPath, state;
};

struct StoreView {
  bool opened = false;
  std::string integrity;
  std::vector<Row> rows;
};

std::string Text(sqlite3_stmt* s, int column) {
  const unsigned char* t = sqlite3_column_text(s, column);
  return t ? std::string(reinterpret_cast<const char*>(t)) : std::string();
}

StoreView ReadStore(const std::string& home) {
  StoreView view;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2((home + "/Klipora.store").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) !=
      SQLITE_OK) {
    sqlite3_close(db);
    return view;
  }
  view.opened = true;
  sqlite3_busy_timeout(db, 5000);
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr) == SQLITE_OK &&
      sqlite3_step(s) == SQLITE_ROW) {
    view.integrity = Text(s, 0);
  }
  sqlite3_finalize(s);
  if (sqlite3_prepare_v2(db,
                         "SELECT id, checksum, libraryPath, thumbnailPath, processingStateRaw "
                         "FROM ScreenshotItem",
                         -1, &s, nullptr) == SQLITE_OK) {
    while (sqlite3_step(s) == SQLITE_ROW) {
      view.rows.push_back({Text(s, 0), Text(s, 1), Text(s, 2), Text(s, 3), Text(s, 4)});
    }
  }
  sqlite3_finalize(s);
  sqlite3_close(db);
  return view;
}

bool Finished(const std::string& state) {
  return state == "complete" || state == "failed" || state == "partiallyFailed";
}

}  // namespace

int Totals::problems() const {
  return lost + duplicated + orphaned + crashed + sanitizer + unsavedPrinted + corrupt +
         unfinished;
}

std::string Totals::line() const {
  std::ostringstream s;
  s << "trials " << trials << ", lost " << lost << ", duplicated " << duplicated << ", orphaned "
    << orphaned << ", crashed " << crashed << ", sanitizer reports " << sanitizer
    << ", printed but unsaved " << unsavedPrinted << ", corrupt stores " << corrupt
    << ", left unprocessed " << unfinished;
  return s.str();
}

std::set<std::string> printedIds(const std::string& out) {
  std::set<std::string> printed;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    if (line.size() > 38 && line.substr(36, 2) == "  ") printed.insert(line.substr(0, 36));
  }
  return printed;
}

int unfinishedItems(const std::string& home) {
  StoreView store = ReadStore(home);
  if (!store.opened) return -1;
  int n = 0;
  for (const auto& row : store.rows) n += Finished(row.state) ? 0 : 1;
  return n;
}

std::vector<std::string> checkLibrary(const std::string& home, const Expected& expected,
                                      bool processed, Totals& totals) {
  std::vector<std::string> problems;
  StoreView store = ReadStore(home);
  if (!store.opened || store.integrity != "ok") {
    ++totals.corrupt;
    problems.push_back("integrity_check: " + store.integrity);
  }
  std::map<std::string, int> perChecksum;
  std::set<std::string> ids, named;
  for (const auto& row : store.rows) {
    ++perChecksum[row.checksum];
    ids.insert(row.id);
    named.insert(fs::path(row.libraryPath).filename());
    if (!row.thumbnailPath.empty()) named.insert(fs::path(row.thumbnailPath).filename());
    if (!fs::exists(row.libraryPath)) {
      ++totals.lost;
      problems.push_back("record " + row.id + " without its file " + row.libraryPath);
    }
    if (processed && !Finished(row.state)) {
      ++totals.unfinished;
      problems.push_back("item " + row.id + " left " + row.state);
    }
  }
  for (const auto& [path, checksum] : expected.checksumOf) {
    int n = perChecksum[checksum];
    if (n == 0) {
      ++totals.lost;
      problems.push_back("lost " + path);
    } else if (n > 1) {
      totals.duplicated += n - 1;
      problems.push_back("duplicated " + path);
    }
  }
  for (const auto& id : expected.printed) {
    if (!ids.count(id)) {
      ++totals.unsavedPrinted;
      problems.push_back("printed but not saved: " + id);
    }
  }
  for (const char* folder : {"/Library/Originals", "/Library/Thumbnails"}) {
    std::error_code ignored;
    for (const auto& e : fs::directory_iterator(home + folder, ignored)) {
      if (!named.count(e.path().filename())) {
        ++totals.orphaned;
        problems.push_back("orphan " + e.path().string());
      }
    }
  }
  return problems;
}

}  // namespace klipora::crash
