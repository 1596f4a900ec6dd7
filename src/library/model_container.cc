#include "library/model_container.h"

#include <ctime>
#include <functional>
#include <set>

#include "library/app_settings.h"
#include "library/copies_in_flight.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "library/search_index.h"
#include "library/trash_deleted_originals_store.h"

namespace klipora::library {
namespace {

template <typename R>
Status EnsureTable(Database& db) {
  const auto& schema = schemaOf<R>();
  const std::string table = quoteIdentifier(schema.table);
  ASSIGN_OR_RETURN(auto existing, db.query("SELECT name FROM pragma_table_info(?)",
                                           {SqlValue(schema.table)}));
  auto declaration = [](const Column<R>& c, bool isKey) {
    static const char* kTypes[] = {"TEXT", "INTEGER", "REAL", "INTEGER",
                                   "REAL", "TEXT",    "BLOB", "TEXT"};
    std::string d = quoteIdentifier(c.name) + " " + kTypes[static_cast<int>(c.kind)];
    if (isKey) d += " PRIMARY KEY NOT NULL";
    return d;
  };
  if (existing.empty()) {
    std::string sql = "CREATE TABLE " + table + " (";
    for (size_t i = 0; i < schema.columns.size(); ++i) {
      if (i) sql += ", ";
      sql += declaration(schema.columns[i], i == 0);
    }
    sql += ")";
    RETURN_IF_ERROR(db.exec(sql));
  } else {
    // A column added to a record later arrives as a nullable column; readers
    // take the field's default for NULL.
    std::set<std::string> have;
    for (const auto& row : existing) have.insert(std::get<std::string>(row[0]));
    for (const auto& c : schema.columns) {
      if (!have.count(c.name)) {
        RETURN_IF_ERROR(db.exec("ALTER TABLE " + table + " ADD COLUMN " + declaration(c, false)));
      }
    }
  }
  for (const auto& ddl : schema.extraDDL) RETURN_IF_ERROR(db.exec(ddl));
  return Status::Ok();
}

Status EnsureAllTables(Database& db) {
  RETURN_IF_ERROR(EnsureTable<ScreenshotItem>(db));
  RETURN_IF_ERROR(EnsureTable<AppSettings>(db));
  RETURN_IF_ERROR(EnsureTable<SavedSearch>(db));
  RETURN_IF_ERROR(EnsureTable<CustomCategory>(db));
  RETURN_IF_ERROR(EnsureTable<UserTag>(db));
  RETURN_IF_ERROR(EnsureTable<WatchedFolder>(db));
  RETURN_IF_ERROR(EnsureTable<ShareRecord>(db));
  RETURN_IF_ERROR(EnsureTable<SharedItemRecord>(db));
  RETURN_IF_ERROR(EnsureTable<DeletedOriginal>(db));
  return ensureCopiesInFlightTable(db);
}

// One step of the migration plan: brings a store from `from` to `to`.
struct MigrationStage {
  int from;
  int to;
  std::function<Status(Database&)> migrate;
};

// Stores older than the current schema come only from pre-release builds; the
// first stage brings any of them (or a new, empty file) straight to the
// current tables. Later schema versions append their stages here.
const std::vector<MigrationStage>& MigrationPlan() {
  static const std::vector<MigrationStage> plan = {
      {0, kCurrentSchemaVersion, EnsureAllTables},
  };
  return plan;
}

std::string Stamp(Clock& clock) {
  time_t t = static_cast<time_t>(clock.now().timeIntervalSince1970());
  std::tm tm{};
  localtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y%m%d-%H%M%S", &tm);
  return buf;
}

// True when the two files hold the same bytes; compared a piece at a time.
bool SameContent(FileSystem& fs, const std::string& a, const std::string& b) {
  auto sizeA = fs.attributes(a);
  auto sizeB = fs.attributes(b);
  if (!sizeA || !sizeB || sizeA->size != sizeB->size) return false;
  constexpr int64_t kPiece = 1 << 20;
  for (int64_t at = 0; at < sizeA->size; at += kPiece) {
    auto pieceA = fs.readFileRange(a, at, kPiece);
    auto pieceB = fs.readFileRange(b, at, kPiece);
    if (!pieceA || !pieceB || *pieceA != *pieceB) return false;
  }
  return true;
}

// Leaves a copy of the store (and its write-ahead log) beside it for support,
// once: a store that fails again unchanged keeps its first copy, so retrying
// a command does not fill the disk with copies.
std::string MakeDiagnosticCopy(FileSystem& fs, Clock& clock, const std::string& storePath) {
  std::string folder = deletingLastPathComponent(storePath);
  if (fs.exists(storePath)) {
    if (auto names = fs.listDirectory(folder)) {
      for (const auto& name : *names) {
        if (!name.starts_with("Klipora-diagnostic-") || !name.ends_with(".store")) continue;
        std::string earlier = joinPath(folder, name);
        if (SameContent(fs, storePath, earlier)) return earlier;
      }
    }
  }
  std::string base = joinPath(folder, "Klipora-diagnostic-" + Stamp(clock));
  std::string copy = base + ".store";
  for (int n = 2; fs.exists(copy); ++n) copy = base + "-" + std::to_string(n) + ".store";
  if (!fs.exists(storePath)) return "(no store file to copy)";
  if (Status s = fs.copyFile(storePath, copy); !s.ok()) return "(copy failed: " + s.message() + ")";
  if (fs.exists(storePath + "-wal")) (void)fs.copyFile(storePath + "-wal", copy + "-wal");
  return copy;
}

}  // namespace

Status migrateToCurrentSchema(Database& db) {
  ASSIGN_OR_RETURN(auto rows, db.query("PRAGMA user_version"));
  int version = static_cast<int>(std::get<int64_t>(rows.at(0).at(0)));
  if (version > kCurrentSchemaVersion) {
    return Status::FailedPrecondition("the library was written by a newer Klipora (schema " +
                                      std::to_string(version) + "); this version reads schema " +
                                      std::to_string(kCurrentSchemaVersion));
  }
  RETURN_IF_ERROR(db.exec("BEGIN IMMEDIATE"));
  auto fail = [&db](Status s) {
    (void)db.exec("ROLLBACK");
    return s;
  };
  for (const auto& stage : MigrationPlan()) {
    if (version >= stage.from && version < stage.to) {
      if (Status s = stage.migrate(db); !s.ok()) return fail(s);
      version = stage.to;
    }
  }
  // Tables and indexes are checked on every open, so a column added within
  // this schema version reaches stores that predate it.
  if (Status s = EnsureAllTables(db); !s.ok()) return fail(s);
  if (Status s = SearchIndex::ensure(db); !s.ok()) return fail(s);
  if (Status s = db.exec("PRAGMA user_version = " + std::to_string(version)); !s.ok()) {
    return fail(s);
  }
  return db.exec("COMMIT");
}

ModelContainer::ModelContainer(std::string storePath, std::unique_ptr<ModelContext> main)
    : storePath_(std::move(storePath)), main_(std::move(main)) {}

Result<std::unique_ptr<ModelContext>> ModelContainer::newContext() {
  ASSIGN_OR_RETURN(auto db, Database::open(storePath_, /*create=*/false));
  return std::make_unique<ModelContext>(std::move(db));
}

Result<std::string> KliporaModelContainer::storeURL(FileSystem& fs, const AppPaths& paths) {
  RETURN_IF_ERROR(fs.createDirectories(paths.supportFolder));
  return paths.storePath;
}

Result<std::shared_ptr<ModelContainer>> KliporaModelContainer::make(FileSystem& fs, Clock& clock,
                                                                    const std::string& storePath) {
  auto opened = [&]() -> Result<std::shared_ptr<ModelContainer>> {
    ASSIGN_OR_RETURN(auto db, Database::open(storePath));
    RETURN_IF_ERROR(migrateToCurrentSchema(*db));
    return std::make_shared<ModelContainer>(storePath,
                                            std::make_unique<ModelContext>(std::move(db)));
  }();
  if (opened) return opened;
  std::string copy = MakeDiagnosticCopy(fs, clock, storePath);
  log::line(log::Level::kError, "",
            "ModelContainer init failed: " + opened.error().message() + ". Diagnostic copy at " +
                copy);
  return opened;
}

std::vector<std::string> KliporaModelContainer::liveModels() {
  return {schemaOf<ScreenshotItem>().table, schemaOf<AppSettings>().table,
          schemaOf<SavedSearch>().table,    schemaOf<CustomCategory>().table,
          schemaOf<UserTag>().table,        schemaOf<WatchedFolder>().table,
          schemaOf<ShareRecord>().table,    schemaOf<SharedItemRecord>().table};
}

std::string KliporaModelContainer::fatalMessage(const std::string& storePath,
                                                const Status& error) {
  return "Could not open Klipora library. Your data is safe at " + storePath +
         ". Please report this to Klipora support with this message; do not delete the file." +
         " Underlying error: " + error.message();
}

}  // namespace klipora::library
