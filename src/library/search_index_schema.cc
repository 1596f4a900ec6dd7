#include "library/search_index_schema.h"

#include <vector>

#include "library/search_cjk.h"
#include "library/search_index.h"

namespace klipora::library::search_schema {
namespace {

// Bump when any definition below changes: stores built by another version are
// rebuilt, since deleting an entry needs exactly the text that was indexed.
constexpr int64_t kIndexVersion = 5;

// Earlier versions whose first index holds the item text as it stands (width
// forms unfolded, CJK text in it) and whose notes and triggers are today's:
// ensure() brings them up to date in place, touching only the items whose
// text holds characters of the CJK blocks (upgrade() below).
constexpr int64_t kUpgradableVersions[] = {3, 4};

struct IndexedColumn {
  const char* name;
  const char* expression;  // over the item's columns, written with {p} before each
};

constexpr IndexedColumn kColumns[] = {
    {"title",
     "coalesce(nullif(trim({p}userTitle, char(32, 9, 10, 11, 12, 13)), ''), "
     "{p}generatedTitle)"},
    {"filename", "{p}originalFilename"},
    {"body", "{p}ocrText"},
    {"details", "coalesce({p}generatedSummary, '') || ' ' || coalesce({p}userNote, '')"},
    {"tags", "{p}userTagsRaw"},
    {"keywords", "{p}generatedKeywordsRaw || char(31) || {p}generatedEntitiesRaw"},
    {"category", "coalesce({p}userCategory, {p}generatedCategory)"},
    {"app", "{p}sourceAppName"},
};

// The item columns the expressions read; a change to any of them re-indexes.
constexpr const char* kWatchedColumns =
    "userTitle, generatedTitle, originalFilename, ocrText, generatedSummary, userNote, "
    "userTagsRaw, generatedKeywordsRaw, generatedEntitiesRaw, userCategory, generatedCategory, "
    "sourceAppName";

// Title and tags say most about an item; the recognised text is long and
// says least per word.
constexpr const char* kRank = "bm25(8.0, 2.0, 1.0, 1.0, 6.0, 4.0, 3.0, 2.0)";

std::string Expressions(const std::string& prefix, bool withNames) {
  std::string out;
  for (const auto& c : kColumns) {
    std::string e = c.expression;
    for (size_t at; (at = e.find("{p}")) != std::string::npos;) e.replace(at, 3, prefix);
    if (!out.empty()) out += ", ";
    out += e;
    if (withNames) out += std::string(" AS ") + c.name;
  }
  return out;
}

std::string NoteOld(const std::string& names) {
  return "INSERT OR IGNORE INTO ScreenshotSearchPending(itemRowid, indexed, " + names +
         ") SELECT old.rowid, 1, " + Expressions("old.", false) +
         " WHERE old.rowid <= (SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1);";
}

// The views the indexes read item text through: the text as it stands
// ("ScreenshotSearchText"), what the first index receives of it (width forms
// folded, CJK characters blanked) and the items whose text holds CJK, the
// only ones the second index takes. The functions are registered on every
// connection (search_cjk.h); the triggers use none of them, so any writer
// (the sqlite3 shell included) can still change items.
constexpr const char* kTextView = "ScreenshotSearchText";

std::vector<std::string> ViewStatements() {
  return {
      std::string("CREATE VIEW ") + kTextView + " AS SELECT rowid AS rowid, " +
          Expressions("", true) + " FROM ScreenshotItem",
      std::string("CREATE VIEW ") + kWordsView + " AS SELECT rowid, " +
          columnNames("klipora_words") + " FROM " + kTextView,
      std::string("CREATE VIEW ") + kCjkView + " AS SELECT rowid, " + columnNames() + " FROM " +
          kTextView + " WHERE klipora_has_cjk(" + columnNames() + ")",
  };
}

// One FTS5 table over the item text of a source view, with the rank and
// merge settings both indexes share.
std::vector<std::string> IndexStatements(const std::string& table, const std::string& view,
                                         const std::string& options) {
  return {
      "CREATE VIRTUAL TABLE " + table + " USING fts5(" + columnNames() + ", content='" + view +
          "', content_rowid='rowid', " + options + ")",
      "INSERT INTO " + table + "(" + table + ", rank) VALUES('rank', '" + std::string(kRank) + "')",
      // With the defaults (a segment per 1 MB of pending terms, a merge
      // whenever 4 segments share a level) catching up 1,000 items wrote 7
      // small segments, which were then merged again and again as the index
      // grew. A catch-up now writes one segment and levels merge at 8: about
      // 30 % less indexing time, with the same query times on 100,000 items.
      // Both settings live in the index's config table, for every connection.
      "INSERT INTO " + table + "(" + table + ", rank) VALUES('hashsize', 4194304)",
      "INSERT INTO " + table + "(" + table + ", rank) VALUES('automerge', 8)",
  };
}

std::vector<std::string> CjkIndexStatements() {
  return IndexStatements(SearchIndex::kCjkTable, kCjkView,
                         std::string("tokenize='") + kCjkTokenizer + "'");
}

std::vector<std::string> CreateStatements() {
  const std::string names = columnNames();
  std::vector<std::string> out = ViewStatements();
  for (auto statements : {IndexStatements(SearchIndex::kTable, kWordsView,
                                          "tokenize='unicode61 remove_diacritics 2', "
                                          "prefix='2 3'"),
                          CjkIndexStatements()}) {
    out.insert(out.end(), statements.begin(), statements.end());
  }
  std::vector<std::string> rest = {
      "CREATE TABLE ScreenshotSearchPending (itemRowid INTEGER PRIMARY KEY, "
      "indexed INTEGER NOT NULL, " +
          names + ")",
      "CREATE TABLE ScreenshotSearchState (id INTEGER PRIMARY KEY CHECK (id = 1), "
      "version INTEGER NOT NULL, itemCount INTEGER NOT NULL, maxRowid INTEGER NOT NULL, "
      "maxRowidItem)",
      // The first change to an indexed item keeps the text the index holds
      // for it; later ones are ignored, as the entry already holds it. Items
      // above the indexed rowid are new and not in the index yet.
      "CREATE TRIGGER ScreenshotSearch_afterUpdate AFTER UPDATE OF " +
          std::string(kWatchedColumns) + " ON ScreenshotItem BEGIN " + NoteOld(names) + " END",
      "CREATE TRIGGER ScreenshotSearch_afterDelete AFTER DELETE ON ScreenshotItem BEGIN " +
          NoteOld(names) + " END",
      // The grid's main orders and the trash, so that the first page of a
      // large library reads a page of index rather than every item.
      "CREATE INDEX IF NOT EXISTS ScreenshotItem_visibleByDate ON "
      "ScreenshotItem(coalesce(capturedAt, importedAt)) WHERE deleted = 0 AND deletedAt IS NULL",
      "CREATE INDEX IF NOT EXISTS ScreenshotItem_trashByDate ON "
      "ScreenshotItem(coalesce(capturedAt, importedAt)) "
      "WHERE (deleted <> 0 OR deletedAt IS NOT NULL)",
  };
  out.insert(out.end(), rest.begin(), rest.end());
  return out;
}

constexpr const char* kDropStatements =
    "DROP TRIGGER IF EXISTS ScreenshotSearch_afterInsert;"
    "DROP TRIGGER IF EXISTS ScreenshotSearch_afterUpdate;"
    "DROP TRIGGER IF EXISTS ScreenshotSearch_afterDelete;"
    "DROP TABLE IF EXISTS ScreenshotSearch;"
    "DROP TABLE IF EXISTS ScreenshotSearchCJK;"
    "DROP TABLE IF EXISTS ScreenshotSearchPending;"
    "DROP TABLE IF EXISTS ScreenshotSearchState;"
    "DROP VIEW IF EXISTS ScreenshotSearchSource;"
    "DROP VIEW IF EXISTS ScreenshotSearchCJKSource;"
    "DROP VIEW IF EXISTS ScreenshotSearchText;";

// The index holds every item up to `maxRowid` (new items get larger rowids,
// or reuse a deleted one, which the delete trigger notes) and `itemCount`
// items then. Only a renumbering of the rows (a VACUUM by an outside tool)
// moves indexed items without a noted delete, and it cannot leave the item
// that held `maxRowid` in place unless every row below it kept its number
// too; so its id, `maxRowidItem`, tells a renumbered store from a current
// one in one lookup, whatever the library's size.
constexpr const char* kItemAtMaxRowid =
    "SELECT id FROM ScreenshotItem WHERE rowid = "
    "(SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)";

// Records the state after a full count (a rebuild, or a store whose state
// predates `maxRowidItem`).
Status RecordState(Database& db) {
  ASSIGN_OR_RETURN(auto rows,
                   db.query("SELECT count(*), coalesce(max(rowid), 0) FROM ScreenshotItem"));
  ASSIGN_OR_RETURN(auto n, db.execute("INSERT OR REPLACE INTO ScreenshotSearchState "
                                      "(id, version, itemCount, maxRowid) VALUES (1, ?, ?, ?)",
                                      {SqlValue(kIndexVersion), rows[0][0], rows[0][1]}));
  (void)n;
  return db.exec("UPDATE ScreenshotSearchState SET maxRowidItem = (" +
                 std::string(kItemAtMaxRowid) + ") WHERE id = 1");
}

}  // namespace

// The column names, each written through `function` when one is given.
std::string columnNames(const std::string& function) {
  std::string out;
  for (const auto& c : kColumns) {
    out += out.empty() ? "" : ", ";
    out += function.empty() ? std::string(c.name) : function + "(" + c.name + ") AS " + c.name;
  }
  return out;
}
// Moves the state past a catch-up without counting the table: the items
// above the old `maxRowid` are new, and the noted items no longer present
// were deleted. Runs before the noted rows are cleared.
Status advanceState(Database& db) {
  RETURN_IF_ERROR(
      db.exec("UPDATE ScreenshotSearchState SET itemCount = itemCount + "
              "(SELECT count(*) FROM ScreenshotItem WHERE rowid > "
              " (SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)) - "
              "(SELECT count(*) FROM ScreenshotSearchPending p WHERE NOT EXISTS "
              " (SELECT 1 FROM ScreenshotItem i WHERE i.rowid = p.itemRowid)) WHERE id = 1"));
  RETURN_IF_ERROR(
      db.exec("UPDATE ScreenshotSearchState SET maxRowid = "
              "(SELECT coalesce(max(rowid), 0) FROM ScreenshotItem) WHERE id = 1"));
  return db.exec("UPDATE ScreenshotSearchState SET maxRowidItem = (" +
                 std::string(kItemAtMaxRowid) + ") WHERE id = 1");
}
Status createAndFill(Database& db) {
  RETURN_IF_ERROR(db.exec(kDropStatements));
  for (const auto& sql : CreateStatements()) RETURN_IF_ERROR(db.exec(sql));
  for (const char* table : {SearchIndex::kTable, SearchIndex::kCjkTable}) {
    RETURN_IF_ERROR(
        db.exec("INSERT INTO " + std::string(table) + "(" + table + ") VALUES('rebuild')"));
  }
  return RecordState(db);
}
Result<Stored> inspect(Database& db) {
  // The objects every version since the notes and triggers shares, and those
  // this one added.
  ASSIGN_OR_RETURN(auto objects,
                   db.query("SELECT sum(name IN ('ScreenshotSearch', 'ScreenshotSearchSource', "
                            "'ScreenshotSearchPending', 'ScreenshotSearchState', "
                            "'ScreenshotSearch_afterUpdate', 'ScreenshotSearch_afterDelete')), "
                            "sum(name IN ('ScreenshotSearchCJK', 'ScreenshotSearchText', "
                            "'ScreenshotSearchCJKSource')) FROM sqlite_master"));
  if (objects[0][0] != SqlValue(int64_t{6})) return Stored::stale;
  const bool complete = objects[0][1] == SqlValue(int64_t{3});
  ASSIGN_OR_RETURN(auto columns,
                   db.query("SELECT count(*) FROM pragma_table_info('ScreenshotSearchState') "
                            "WHERE name = 'maxRowidItem'"));
  if (std::get<int64_t>(columns[0][0]) == 0) {
    RETURN_IF_ERROR(db.exec("ALTER TABLE ScreenshotSearchState ADD COLUMN maxRowidItem"));
  }
  ASSIGN_OR_RETURN(auto state, db.query("SELECT version, itemCount, maxRowid, maxRowidItem, (" +
                                        std::string(kItemAtMaxRowid) +
                                        ") FROM ScreenshotSearchState WHERE id = 1"));
  if (state.empty()) return Stored::stale;
  Stored found = Stored::stale;
  if (state[0][0] == SqlValue(kIndexVersion) && complete) found = Stored::current;
  for (int64_t version : kUpgradableVersions) {
    if (state[0][0] == SqlValue(version)) found = Stored::upgradable;
  }
  if (found == Stored::stale) return found;
  ASSIGN_OR_RETURN(auto pending, db.query("SELECT EXISTS (SELECT 1 FROM ScreenshotSearchPending)"));
  if (std::get<int64_t>(pending[0][0]) != 0) return found;
  if (state[0][2] == SqlValue(int64_t{0})) return found;  // nothing indexed to be renumbered
  if (!std::holds_alternative<std::monostate>(state[0][3])) {
    return state[0][3] == state[0][4] ? found : Stored::stale;
  }
  // A state recorded before the item at `maxRowid` was: the full count, once.
  ASSIGN_OR_RETURN(auto below,
                   db.query("SELECT count(*) FROM ScreenshotItem WHERE rowid <= ?", {state[0][2]}));
  if (below[0][0] != state[0][1]) return Stored::stale;
  RETURN_IF_ERROR(db.exec("UPDATE ScreenshotSearchState SET maxRowidItem = (" +
                          std::string(kItemAtMaxRowid) + ") WHERE id = 1"));
  return found;
}
// Brings an index of an upgradable version up to this one in place. Its
// first index holds the text as it stood; only where that text holds
// characters of the CJK blocks does it differ from what the index receives
// now, so only those items are taken out with their old text and put back
// folded, and only they can hold text for the second index, which is made
// afresh from them. The text an item was indexed with is its noted text while
// a change is pending, else its current text; items above the indexed rowid
// are left to the next catch-up. One pass over the items picks the few; the
// index's writes are bounded by its own flushes, whatever the library's size.
Status upgrade(Database& db) {
  const std::string names = columnNames();
  RETURN_IF_ERROR(
      db.exec("DROP TABLE IF EXISTS ScreenshotSearchCJK;"
              "DROP VIEW IF EXISTS ScreenshotSearchSource;"
              "DROP VIEW IF EXISTS ScreenshotSearchCJKSource;"
              "DROP VIEW IF EXISTS ScreenshotSearchText;"
              "DROP TABLE IF EXISTS temp.ScreenshotSearchRefold;"));
  for (const auto& sql : ViewStatements()) RETURN_IF_ERROR(db.exec(sql));
  for (const auto& sql : CjkIndexStatements()) RETURN_IF_ERROR(db.exec(sql));
  RETURN_IF_ERROR(db.exec(
      "CREATE TEMP TABLE ScreenshotSearchRefold (itemRowid INTEGER PRIMARY KEY, noted INTEGER)"));
  RETURN_IF_ERROR(
      db.exec("INSERT INTO temp.ScreenshotSearchRefold SELECT itemRowid, 1 FROM "
              "ScreenshotSearchPending WHERE indexed <> 0 AND klipora_may_fold(" +
              names + ")"));
  RETURN_IF_ERROR(db.exec(std::string("INSERT INTO temp.ScreenshotSearchRefold SELECT rowid, 0 "
                                      "FROM ") +
                          kTextView +
                          " WHERE rowid <= (SELECT maxRowid FROM ScreenshotSearchState WHERE id = "
                          "1) AND rowid NOT IN (SELECT itemRowid FROM ScreenshotSearchPending) "
                          "AND klipora_may_fold(" +
                          names + ")"));
  const std::string indexedText =
      "WITH indexedText AS (SELECT itemRowid AS rowid, " + names +
      " FROM ScreenshotSearchPending WHERE itemRowid IN (SELECT itemRowid FROM "
      "temp.ScreenshotSearchRefold WHERE noted) UNION ALL SELECT rowid, " +
      names + " FROM " + kTextView +
      " WHERE rowid IN (SELECT itemRowid FROM temp.ScreenshotSearchRefold WHERE NOT "
      "noted)) ";
  const std::string words = SearchIndex::kTable;
  const std::string cjk = SearchIndex::kCjkTable;
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + words + "(" + words + ", rowid, " + names +
                          ") SELECT 'delete', rowid, " + names + " FROM indexedText"));
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + words + "(rowid, " + names +
                          ") SELECT rowid, " + columnNames("klipora_words") + " FROM indexedText"));
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + cjk + "(rowid, " + names +
                          ") SELECT rowid, " + names + " FROM indexedText WHERE klipora_has_cjk(" +
                          names + ")"));
  RETURN_IF_ERROR(db.exec("DROP TABLE temp.ScreenshotSearchRefold"));
  ASSIGN_OR_RETURN(auto n, db.execute("UPDATE ScreenshotSearchState SET version = ? WHERE id = 1",
                                      {SqlValue(kIndexVersion)}));
  (void)n;
  return Status::Ok();
}

}  // namespace klipora::library::search_schema
