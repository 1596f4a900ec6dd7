#include "library/copies_in_flight.h"

#include "library/screenshot_item.h"
#include "platform/log.h"

namespace klipora::library {

std::optional<UUID> CopiesInFlight::take() {
  if (!ready_.empty() && clock_.now().timeIntervalSince(notedAt_) > kMaxBatchAge) ready_.clear();
  if (ready_.empty()) {
    std::vector<UUID> batch(kBatch);
    std::vector<SqlValue> args;
    std::string sql = "INSERT INTO CopyInFlight (name, notedAt) VALUES ";
    const Date now = clock_.now();
    for (size_t i = 0; i < batch.size(); ++i) {
      batch[i] = UUID::Random();
      sql += i ? ", (?, ?)" : "(?, ?)";
      args.emplace_back(batch[i].uuidString());
      args.emplace_back(now.timeIntervalSince1970());
    }
    if (auto noted = db_.execute(sql, args); !noted) {
      log::warning("Library", "could not note the names of new library copies: %s",
                   noted.error().message().c_str());
      return std::nullopt;
    }
    ready_ = std::move(batch);
    notedAt_ = now;
  }
  UUID name = ready_.back();
  ready_.pop_back();
  return name;
}

Status ensureCopiesInFlightTable(Database& db) {
  RETURN_IF_ERROR(
      db.exec("CREATE TABLE IF NOT EXISTS CopyInFlight (name TEXT PRIMARY KEY NOT NULL, "
              "notedAt REAL NOT NULL) WITHOUT ROWID"));
  // A copy's name is its UUID and extension; the thumbnail's is the item id.
  return db.exec("CREATE TRIGGER IF NOT EXISTS CopyInFlightSaved AFTER INSERT ON " +
                 quoteIdentifier(schemaOf<ScreenshotItem>().table) +
                 " BEGIN DELETE FROM CopyInFlight WHERE name IN "
                 "(NEW.id, substr(NEW.importedFilename, 1, 36)); END");
}

Result<std::vector<NotedCopy>> notedCopies(Database& db) {
  ASSIGN_OR_RETURN(auto rows, db.query("SELECT name, notedAt FROM CopyInFlight"));
  std::vector<NotedCopy> noted;
  noted.reserve(rows.size());
  for (const auto& row : rows) {
    noted.push_back({std::get<std::string>(row.at(0)),
                     Date::fromSecondsSince1970(std::get<double>(row.at(1)))});
  }
  return noted;
}

Status forgetNotedCopies(Database& db, const std::vector<std::string>& names) {
  if (names.empty()) return Status::Ok();
  RETURN_IF_ERROR(db.exec("BEGIN IMMEDIATE"));
  for (const auto& name : names) {
    if (auto gone = db.execute("DELETE FROM CopyInFlight WHERE name = ?", {SqlValue(name)});
        !gone) {
      (void)db.exec("ROLLBACK");
      return gone.error();
    }
  }
  return db.exec("COMMIT");
}

}  // namespace klipora::library
