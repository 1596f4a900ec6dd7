#include "library/database.h"

#include <sqlite3.h>

#include "library/search_cjk.h"

namespace klipora::library {
namespace {

// Statements are reset (and their bindings cleared) whenever they leave scope.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* s) : s_(s) {}
  ~StatementUse() {
    sqlite3_reset(s_);
    sqlite3_clear_bindings(s_);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* s_;
};

int Bind(sqlite3_stmt* s, int index, const SqlValue& v) {
  if (std::holds_alternative<std::monostate>(v)) return sqlite3_bind_null(s, index);
  if (auto p = std::get_if<int64_t>(&v)) return sqlite3_bind_int64(s, index, *p);
  if (auto p = std::get_if<double>(&v)) return sqlite3_bind_double(s, index, *p);
  if (auto p = std::get_if<std::string>(&v)) {
    return sqlite3_bind_text64(s, index, p->data(), p->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  const auto& b = std::get<Bytes>(v);
  return sqlite3_bind_blob64(s, index, b.data.data(), b.data.size(), SQLITE_TRANSIENT);
}

SqlValue Read(sqlite3_stmt* s, int column) {
  switch (sqlite3_column_type(s, column)) {
    case SQLITE_INTEGER:
      return static_cast<int64_t>(sqlite3_column_int64(s, column));
    case SQLITE_FLOAT:
      return sqlite3_column_double(s, column);
    case SQLITE_TEXT: {
      const char* text = reinterpret_cast<const char*>(sqlite3_column_text(s, column));
      return std::string(text, static_cast<size_t>(sqlite3_column_bytes(s, column)));
    }
    case SQLITE_BLOB: {
      const char* data = static_cast<const char*>(sqlite3_column_blob(s, column));
      return Bytes{std::string(data ? data : "", static_cast<size_t>(sqlite3_column_bytes(s, column)))};
    }
    default:
      return std::monostate{};
  }
}

}  // namespace

std::string quoteIdentifier(const std::string& name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out.push_back('"');
    out.push_back(c);
  }
  out.push_back('"');
  return out;
}

Result<std::unique_ptr<Database>> Database::open(const std::string& path, bool create) {
  sqlite3* db = nullptr;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
  int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
  if (rc != SQLITE_OK) {
    std::string message = db ? sqlite3_errmsg(db) : sqlite3_errstr(rc);
    sqlite3_close(db);
    return Err(Status::IoError("cannot open " + path + ": " + message));
  }
  std::unique_ptr<Database> database(new Database(db, path));
  sqlite3_busy_timeout(db, 5000);
  sqlite3_extended_result_codes(db, 1);
  // Reading the schema forces SQLite to look at the file header, so a file
  // that is not a database fails here rather than at the first fetch.
  RETURN_IF_ERROR(database->exec("SELECT count(*) FROM sqlite_master"));
  if (path != ":memory:") RETURN_IF_ERROR(database->exec("PRAGMA journal_mode=WAL"));
  RETURN_IF_ERROR(database->exec("PRAGMA synchronous=NORMAL"));
  // The search indexes read and write their text through these.
  RETURN_IF_ERROR(registerCjkSearch(db));
  return database;
}

Database::~Database() {
  for (auto& [sql, stmt] : statements_) sqlite3_finalize(stmt);
  sqlite3_close_v2(db_);
}

Status Database::errorStatus(int rc, const std::string& what) const {
  std::string message = what + ": " + sqlite3_errmsg(db_);
  switch (rc & 0xFF) {
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
      return Status::Corruption(message);
    case SQLITE_FULL:
      return Status::NoSpace(message);
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_CANTOPEN:
      return Status::PermissionDenied(message);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return Status::Unavailable(message);
    default:
      return Status::IoError(message);
  }
}

Status Database::exec(const std::string& sql) {
  char* error = nullptr;
  int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &error);
  if (rc != SQLITE_OK) {
    std::string message = error ? error : sqlite3_errstr(rc);
    sqlite3_free(error);
    Status s = errorStatus(rc, "SQL failed");
    return Status(s.code(), "SQL failed: " + message);
  }
  return Status::Ok();
}

Result<sqlite3_stmt*> Database::prepare(const std::string& sql) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) return it->second;
  sqlite3_stmt* stmt = nullptr;
  int rc = sqlite3_prepare_v3(db_, sql.c_str(), static_cast<int>(sql.size()),
                              SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
  if (rc != SQLITE_OK) return Err(errorStatus(rc, "prepare"));
  statements_[sql] = stmt;
  return stmt;
}

Result<std::vector<SqlRow>> Database::query(const std::string& sql,
                                            const std::vector<SqlValue>& args) {
  ASSIGN_OR_RETURN(sqlite3_stmt * stmt, prepare(sql));
  StatementUse use(stmt);
  for (size_t i = 0; i < args.size(); ++i) {
    int rc = Bind(stmt, static_cast<int>(i + 1), args[i]);
    if (rc != SQLITE_OK) return Err(errorStatus(rc, "bind"));
  }
  std::vector<SqlRow> rows;
  int columns = sqlite3_column_count(stmt);
  while (true) {
    int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) break;
    if (rc != SQLITE_ROW) return Err(errorStatus(rc, "query"));
    SqlRow row;
    row.reserve(static_cast<size_t>(columns));
    for (int c = 0; c < columns; ++c) row.push_back(Read(stmt, c));
    rows.push_back(std::move(row));
  }
  return rows;
}

Result<int64_t> Database::execute(const std::string& sql, const std::vector<SqlValue>& args) {
  ASSIGN_OR_RETURN(auto rows, query(sql, args));
  (void)rows;
  return static_cast<int64_t>(sqlite3_changes64(db_));
}

Result<int64_t> Database::dataVersion() {
  ASSIGN_OR_RETURN(auto rows, query("PRAGMA data_version"));
  if (rows.empty() || !std::holds_alternative<int64_t>(rows[0][0])) {
    return Err(Status::Internal("PRAGMA data_version gave no number"));
  }
  return std::get<int64_t>(rows[0][0]);
}

}  // namespace klipora::library
