// Database: one SQLite connection (WAL mode, busy timeout, cached prepared
// statements). The store's records sit on top of it (ModelContext); this layer
// only runs SQL and converts values. SQLite is never faked: tests use a
// temporary file or ":memory:".
//
// Thread rules: one connection belongs to one thread at a time.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "library/sql_value.h"
#include "platform/status.h"

struct sqlite3;
struct sqlite3_stmt;

namespace klipora::library {

using SqlRow = std::vector<SqlValue>;

class Database {
 public:
  // Opens (creating when `create`) the database at `path`, sets WAL mode, a
  // 5 s busy timeout and checks that the file really is a database (SQLite
  // only reads the header on first use). Errors carry SQLite's message.
  static Result<std::unique_ptr<Database>> open(const std::string& path, bool create = true);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Runs one or more statements without parameters.
  Status exec(const std::string& sql);
  // Runs a statement with parameters; returns all result rows.
  Result<std::vector<SqlRow>> query(const std::string& sql, const std::vector<SqlValue>& args = {});
  // Runs a statement with parameters for its effect; returns the changed-row count.
  Result<int64_t> execute(const std::string& sql, const std::vector<SqlValue>& args = {});
  // PRAGMA data_version: changes whenever another connection commits.
  Result<int64_t> dataVersion();

  const std::string& path() const { return path_; }
  sqlite3* handle() { return db_; }

 private:
  Database(sqlite3* db, std::string path) : db_(db), path_(std::move(path)) {}
  Result<sqlite3_stmt*> prepare(const std::string& sql);
  Status errorStatus(int rc, const std::string& what) const;

  sqlite3* db_;
  std::string path_;
  std::map<std::string, sqlite3_stmt*> statements_;
};

// Quotes an identifier for SQL ("name" → "\"name\"").
std::string quoteIdentifier(const std::string& name);

}  // namespace klipora::library
