#include "library/search_index.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "library/search_cjk.h"
#include "library/search_text.h"
#include "platform/log.h"

namespace klipora::library {
namespace {

// Bump when any definition below changes: stores built by another version are
// rebuilt, since deleting an entry needs exactly the text that was indexed.
constexpr int64_t kIndexVersion = 5;

// Earlier versions whose first index holds the item text as it stands (width
// forms unfolded, CJK text in it) and whose notes and triggers are today's:
// ensure() brings them up to date in place, touching only the items whose
// text holds characters of the CJK blocks (Upgrade below).
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

// The column names, each written through `function` when one is given.
std::string Names(const std::string& function = "") {
  std::string out;
  for (const auto& c : kColumns) {
    out += out.empty() ? "" : ", ";
    out += function.empty() ? std::string(c.name)
                            : function + "(" + c.name + ") AS " + c.name;
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
constexpr const char* kWordsView = "ScreenshotSearchSource";
constexpr const char* kCjkView = "ScreenshotSearchCJKSource";

std::vector<std::string> ViewStatements() {
  return {
      std::string("CREATE VIEW ") + kTextView + " AS SELECT rowid AS rowid, " +
          Expressions("", true) + " FROM ScreenshotItem",
      std::string("CREATE VIEW ") + kWordsView + " AS SELECT rowid, " + Names("klipora_words") +
          " FROM " + kTextView,
      std::string("CREATE VIEW ") + kCjkView + " AS SELECT rowid, " + Names() + " FROM " +
          kTextView + " WHERE klipora_has_cjk(" + Names() + ")",
  };
}

// One FTS5 table over the item text of a source view, with the rank and
// merge settings both indexes share.
std::vector<std::string> IndexStatements(const std::string& table, const std::string& view,
                                         const std::string& options) {
  return {
      "CREATE VIRTUAL TABLE " + table + " USING fts5(" + Names() + ", content='" + view +
          "', content_rowid='rowid', " + options + ")",
      "INSERT INTO " + table + "(" + table + ", rank) VALUES('rank', '" + std::string(kRank) +
          "')",
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
  const std::string names = Names();
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

// Moves the state past a catch-up without counting the table: the items
// above the old `maxRowid` are new, and the noted items no longer present
// were deleted. Runs before the noted rows are cleared.
Status AdvanceState(Database& db) {
  RETURN_IF_ERROR(db.exec(
      "UPDATE ScreenshotSearchState SET itemCount = itemCount + "
      "(SELECT count(*) FROM ScreenshotItem WHERE rowid > "
      " (SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)) - "
      "(SELECT count(*) FROM ScreenshotSearchPending p WHERE NOT EXISTS "
      " (SELECT 1 FROM ScreenshotItem i WHERE i.rowid = p.itemRowid)) WHERE id = 1"));
  RETURN_IF_ERROR(db.exec("UPDATE ScreenshotSearchState SET maxRowid = "
                          "(SELECT coalesce(max(rowid), 0) FROM ScreenshotItem) WHERE id = 1"));
  return db.exec("UPDATE ScreenshotSearchState SET maxRowidItem = (" +
                 std::string(kItemAtMaxRowid) + ") WHERE id = 1");
}

Status CreateAndFill(Database& db) {
  RETURN_IF_ERROR(db.exec(kDropStatements));
  for (const auto& sql : CreateStatements()) RETURN_IF_ERROR(db.exec(sql));
  for (const char* table : {SearchIndex::kTable, SearchIndex::kCjkTable}) {
    RETURN_IF_ERROR(db.exec("INSERT INTO " + std::string(table) + "(" + table +
                            ") VALUES('rebuild')"));
  }
  return RecordState(db);
}

// What ensure() finds in a store.
enum class Stored { current, upgradable, stale };

Result<Stored> Inspect(Database& db) {
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
Status Upgrade(Database& db) {
  const std::string names = Names();
  RETURN_IF_ERROR(db.exec(
      "DROP TABLE IF EXISTS ScreenshotSearchCJK;"
      "DROP VIEW IF EXISTS ScreenshotSearchSource;"
      "DROP VIEW IF EXISTS ScreenshotSearchCJKSource;"
      "DROP VIEW IF EXISTS ScreenshotSearchText;"
      "DROP TABLE IF EXISTS temp.ScreenshotSearchRefold;"));
  for (const auto& sql : ViewStatements()) RETURN_IF_ERROR(db.exec(sql));
  for (const auto& sql : CjkIndexStatements()) RETURN_IF_ERROR(db.exec(sql));
  RETURN_IF_ERROR(db.exec(
      "CREATE TEMP TABLE ScreenshotSearchRefold (itemRowid INTEGER PRIMARY KEY, noted INTEGER)"));
  RETURN_IF_ERROR(db.exec("INSERT INTO temp.ScreenshotSearchRefold SELECT itemRowid, 1 FROM "
                          "ScreenshotSearchPending WHERE indexed <> 0 AND klipora_may_fold(" +
                          names + ")"));
  RETURN_IF_ERROR(db.exec(std::string("INSERT INTO temp.ScreenshotSearchRefold SELECT rowid, 0 "
                                      "FROM ") +
                          kTextView +
                          " WHERE rowid <= (SELECT maxRowid FROM ScreenshotSearchState WHERE id = "
                          "1) AND rowid NOT IN (SELECT itemRowid FROM ScreenshotSearchPending) "
                          "AND klipora_may_fold(" + names + ")"));
  const std::string indexedText =
      "WITH indexedText AS (SELECT itemRowid AS rowid, " + names +
      " FROM ScreenshotSearchPending WHERE itemRowid IN (SELECT itemRowid FROM "
      "temp.ScreenshotSearchRefold WHERE noted) UNION ALL SELECT rowid, " + names + " FROM " +
      kTextView + " WHERE rowid IN (SELECT itemRowid FROM temp.ScreenshotSearchRefold WHERE NOT "
      "noted)) ";
  const std::string words = SearchIndex::kTable;
  const std::string cjk = SearchIndex::kCjkTable;
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + words + "(" + words + ", rowid, " +
                          names + ") SELECT 'delete', rowid, " + names + " FROM indexedText"));
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + words + "(rowid, " + names +
                          ") SELECT rowid, " + Names("klipora_words") + " FROM indexedText"));
  RETURN_IF_ERROR(db.exec(indexedText + "INSERT INTO " + cjk + "(rowid, " + names +
                          ") SELECT rowid, " + names + " FROM indexedText WHERE klipora_has_cjk(" +
                          names + ")"));
  RETURN_IF_ERROR(db.exec("DROP TABLE temp.ScreenshotSearchRefold"));
  ASSIGN_OR_RETURN(auto n, db.execute("UPDATE ScreenshotSearchState SET version = ? WHERE id = 1",
                                      {SqlValue(kIndexVersion)}));
  (void)n;
  return Status::Ok();
}

struct TokenSink {
  std::vector<std::string>* out;
};

int CollectToken(void* context, int, const char* token, int length, int, int) {
  static_cast<TokenSink*>(context)->out->emplace_back(token, static_cast<size_t>(length));
  return SQLITE_OK;
}

size_t CharacterCount(const std::string& utf8) {
  size_t n = 0;
  for (unsigned char c : utf8) n += (c & 0xC0) != 0x80;
  return n;
}

std::string Phrase(const std::vector<std::string>& tokens) {
  std::string out = "\"";
  for (size_t i = 0; i < tokens.size(); ++i) {
    if (i) out.push_back(' ');
    for (char c : tokens[i]) {
      if (c == '"') out.push_back('"');
      out.push_back(c);
    }
  }
  out.push_back('"');
  return out;
}

// The index's own tokenizer, reached through the FTS5 C interface, so the
// query is cut into exactly the tokens the index holds.
class QueryTokenizer {
 public:
  static Result<std::unique_ptr<QueryTokenizer>> open(Database& db) {
    fts5_api* api = nullptr;
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db.handle(), "SELECT fts5(?1)", -1, &stmt, nullptr) != SQLITE_OK) {
      return Err(Status::Internal("this SQLite has no FTS5"));
    }
    sqlite3_bind_pointer(stmt, 1, static_cast<void*>(&api), "fts5_api_ptr", nullptr);
    sqlite3_step(stmt);
    sqlite3_finalize(stmt);
    if (!api) return Err(Status::Internal("this SQLite has no FTS5"));
    auto out = std::unique_ptr<QueryTokenizer>(new QueryTokenizer);
    void* userData = nullptr;
    if (api->xFindTokenizer(api, "unicode61", &userData, &out->tokenizer_) != SQLITE_OK) {
      return Err(Status::Internal("FTS5 has no unicode61 tokenizer"));
    }
    const char* args[] = {"remove_diacritics", "2"};
    if (out->tokenizer_.xCreate(userData, args, 2, &out->instance_) != SQLITE_OK) {
      return Err(Status::Internal("cannot create the unicode61 tokenizer"));
    }
    return out;
  }
  ~QueryTokenizer() {
    if (instance_) tokenizer_.xDelete(instance_);
  }

  Result<std::vector<std::string>> tokens(std::string_view text) {
    std::vector<std::string> out;
    TokenSink sink{&out};
    int rc = tokenizer_.xTokenize(instance_, &sink, FTS5_TOKENIZE_QUERY, text.data(),
                                  static_cast<int>(text.size()), CollectToken);
    if (rc != SQLITE_OK) return Err(Status::Internal("tokenizing the query failed"));
    return out;
  }

 private:
  QueryTokenizer() = default;
  fts5_tokenizer tokenizer_{};
  Fts5Tokenizer* instance_ = nullptr;
};

}  // namespace

Status SearchIndex::ensure(Database& db) {
  ASSIGN_OR_RETURN(Stored stored, Inspect(db));
  if (stored == Stored::current) return Status::Ok();
  if (stored == Stored::upgradable) {
    log::info("Library", "Bringing the search index up to date");
    return Upgrade(db);
  }
  log::info("Library", "Building the search index");
  return CreateAndFill(db);
}

Status SearchIndex::rebuild(Database& db) {
  RETURN_IF_ERROR(db.exec("BEGIN IMMEDIATE"));
  Status s = CreateAndFill(db);
  if (!s.ok()) {
    (void)db.exec("ROLLBACK");
    return s;
  }
  return db.exec("COMMIT");
}

Result<int64_t> SearchIndex::catchUp(Database& db) {
  constexpr const char* kBehind =
      "SELECT EXISTS (SELECT 1 FROM ScreenshotSearchPending) OR "
      "(SELECT coalesce(max(rowid), 0) FROM ScreenshotItem) > "
      "(SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)";
  ASSIGN_OR_RETURN(auto behind, db.query(kBehind));
  if (std::get<int64_t>(behind[0][0]) == 0) return int64_t{0};
  const std::string names = Names();
  RETURN_IF_ERROR(db.exec("BEGIN IMMEDIATE"));
  auto run = [&]() -> Result<int64_t> {
    // Both indexes take the same rows from the same notes, in one
    // transaction: they never disagree on what they cover. Each takes the
    // text through its own view, and its old text as that view gives it; the
    // second one only from items whose text holds CJK.
    const std::string words = SearchIndex::kTable;
    const std::string cjk = SearchIndex::kCjkTable;
    const std::string rows =
        " WHERE rowid IN (SELECT itemRowid FROM ScreenshotSearchPending) OR rowid > "
        "(SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)";
    RETURN_IF_ERROR(db.exec("INSERT INTO " + words + "(" + words + ", rowid, " + names +
                            ") SELECT 'delete', itemRowid, " + Names("klipora_words") +
                            " FROM ScreenshotSearchPending WHERE indexed <> 0"));
    ASSIGN_OR_RETURN(int64_t added,
                     db.execute("INSERT INTO " + words + "(rowid, " + names + ") SELECT rowid, " +
                                names + " FROM " + kWordsView + rows));
    RETURN_IF_ERROR(db.exec("INSERT INTO " + cjk + "(" + cjk + ", rowid, " + names +
                            ") SELECT 'delete', itemRowid, " + names +
                            " FROM ScreenshotSearchPending WHERE indexed <> 0 AND "
                            "klipora_has_cjk(" + names + ")"));
    ASSIGN_OR_RETURN(int64_t cjkAdded,
                     db.execute("INSERT INTO " + cjk + "(rowid, " + names + ") SELECT rowid, " +
                                names + " FROM " + kCjkView + rows));
    (void)cjkAdded;
    RETURN_IF_ERROR(AdvanceState(db));
    ASSIGN_OR_RETURN(int64_t removed, db.execute("DELETE FROM ScreenshotSearchPending"));
    return std::max(added, removed);
  };
  auto done = run();
  if (!done) {
    (void)db.exec("ROLLBACK");
    return Err(done.error().WithContext("search index update failed"));
  }
  RETURN_IF_ERROR(db.exec("COMMIT"));
  return done;
}

Result<std::vector<std::string>> SearchIndex::tokens(Database& db, std::string_view text) {
  ASSIGN_OR_RETURN(auto tokenizer, QueryTokenizer::open(db));
  return tokenizer->tokens(wordIndexText(text));
}

Result<SearchIndex::DocumentFrequencies> SearchIndex::documentFrequencies(
    Database& db, const std::vector<std::string>& terms) {
  DocumentFrequencies out;
  ASSIGN_OR_RETURN(auto state,
                   db.query("SELECT itemCount FROM ScreenshotSearchState WHERE id = 1"));
  if (!state.empty()) out.documentCount = std::get<int64_t>(state[0][0]);
  if (terms.empty()) return out;
  // The term list is read through a vocabulary table of this connection
  // only, so the store file's schema stays as it is.
  RETURN_IF_ERROR(
      db.exec("CREATE VIRTUAL TABLE IF NOT EXISTS temp.ScreenshotSearchTerms USING "
              "fts5vocab(main, 'ScreenshotSearch', 'row')"));
  // A term is looked up as the index holds it (full-width forms folded); one
  // the index cannot hold as a single token (CJK text) is left out.
  std::map<std::string, std::vector<const std::string*>> asked;
  for (const auto& term : terms) {
    std::string folded = wordIndexText(term);
    if (folded.find(' ') == std::string::npos) asked[std::move(folded)].push_back(&term);
  }
  if (asked.empty()) return out;
  std::string sql = "SELECT term, doc FROM temp.ScreenshotSearchTerms WHERE term IN (";
  std::vector<SqlValue> args;
  for (const auto& [folded, originals] : asked) {
    sql += args.empty() ? "?" : ", ?";
    args.emplace_back(folded);
  }
  ASSIGN_OR_RETURN(auto rows, db.query(sql + ")", args));
  for (const auto& row : rows) {
    for (const std::string* term : asked[std::get<std::string>(row[0])]) {
      out.perTerm[*term] = std::get<int64_t>(row[1]);
    }
  }
  return out;
}

Result<SearchIndex::TextMatch> SearchIndex::matchExpressions(Database& db,
                                                             std::string_view freeText) {
  ASSIGN_OR_RETURN(auto tokenizer, QueryTokenizer::open(db));
  TextMatch out;
  auto append = [](std::string& expression, const std::string& phrase) {
    expression += (expression.empty() ? "" : " AND ") + phrase;
  };
  const std::string text = joinCjkAcrossBlanks(freeText);
  size_t terms = 0;
  size_t words = 0;
  size_t i = 0;
  // Words without tokens are skipped, but only so many are looked at, so a
  // huge paste of punctuation stays cheap.
  while (i < text.size() && terms < kMaxTerms && words < 8 * kMaxTerms) {
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    size_t start = i;
    while (i < text.size() && !std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (start == i) break;
    ++words;
    const std::string_view word = std::string_view(text).substr(start, i - start);
    const bool cjk = hasCjkText(word);
    if (cjk) {
      for (const CjkRun& run : cjkRuns(word)) {
        if (terms == kMaxTerms) break;
        ++terms;
        append(out.cjk, "\"" + toUtf8(run.characters) + "\"" +
                            (run.characters.size() == 1 ? " *" : ""));
      }
    }
    ASSIGN_OR_RETURN(auto found, tokenizer->tokens(wordIndexText(word)));
    if (found.empty() || terms == kMaxTerms) continue;
    ++terms;
    append(out.words, Phrase(found) + (CharacterCount(found.back()) >= 2 ? " *" : ""));
  }
  return out;
}

Result<std::string> SearchIndex::tagExpression(Database& db, std::string_view tagName) {
  ASSIGN_OR_RETURN(auto words, tokens(db, tagName));
  if (words.empty()) return std::string();
  return "tags : " + Phrase(words);
}

}  // namespace klipora::library
