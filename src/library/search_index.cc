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
constexpr int64_t kIndexVersion = 4;

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

std::string Names() {
  std::string out;
  for (const auto& c : kColumns) out += std::string(out.empty() ? "" : ", ") + c.name;
  return out;
}

std::string NoteOld(const std::string& names) {
  return "INSERT OR IGNORE INTO ScreenshotSearchPending(itemRowid, indexed, " + names +
         ") SELECT old.rowid, 1, " + Expressions("old.", false) +
         " WHERE old.rowid <= (SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1);";
}

// One FTS5 table over the item text of the source view, with the rank and
// merge settings both indexes share.
std::vector<std::string> IndexStatements(const std::string& table, const std::string& options) {
  return {
      "CREATE VIRTUAL TABLE " + table + " USING fts5(" + Names() +
          ", content='ScreenshotSearchSource', content_rowid='rowid', " + options + ")",
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

std::vector<std::string> CreateStatements() {
  const std::string names = Names();
  std::vector<std::string> out = {
      "CREATE VIEW ScreenshotSearchSource AS SELECT rowid AS rowid, " + Expressions("", true) +
          " FROM ScreenshotItem",
  };
  for (auto statements : {IndexStatements(SearchIndex::kTable,
                                          "tokenize='unicode61 remove_diacritics 2', "
                                          "prefix='2 3'"),
                          IndexStatements(SearchIndex::kCjkTable,
                                          std::string("tokenize='") + kCjkTokenizer + "'")}) {
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
    "DROP VIEW IF EXISTS ScreenshotSearchSource;";

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

Result<bool> IsCurrent(Database& db) {
  ASSIGN_OR_RETURN(auto objects,
                   db.query("SELECT count(*) FROM sqlite_master WHERE name IN ("
                            "'ScreenshotSearch', 'ScreenshotSearchCJK', 'ScreenshotSearchSource', "
                            "'ScreenshotSearchPending', 'ScreenshotSearchState', "
                            "'ScreenshotSearch_afterUpdate', 'ScreenshotSearch_afterDelete')"));
  if (std::get<int64_t>(objects[0][0]) != 7) return false;
  ASSIGN_OR_RETURN(auto columns,
                   db.query("SELECT count(*) FROM pragma_table_info('ScreenshotSearchState') "
                            "WHERE name = 'maxRowidItem'"));
  if (std::get<int64_t>(columns[0][0]) == 0) {
    RETURN_IF_ERROR(db.exec("ALTER TABLE ScreenshotSearchState ADD COLUMN maxRowidItem"));
  }
  ASSIGN_OR_RETURN(auto state, db.query("SELECT version, itemCount, maxRowid, maxRowidItem, (" +
                                        std::string(kItemAtMaxRowid) +
                                        ") FROM ScreenshotSearchState WHERE id = 1"));
  if (state.empty() || state[0][0] != SqlValue(kIndexVersion)) return false;
  ASSIGN_OR_RETURN(auto pending, db.query("SELECT EXISTS (SELECT 1 FROM ScreenshotSearchPending)"));
  if (std::get<int64_t>(pending[0][0]) != 0) return true;
  if (state[0][2] == SqlValue(int64_t{0})) return true;  // nothing indexed to be renumbered
  if (!std::holds_alternative<std::monostate>(state[0][3])) return state[0][3] == state[0][4];
  // A state recorded before the item at `maxRowid` was: the full count, once.
  ASSIGN_OR_RETURN(auto below,
                   db.query("SELECT count(*) FROM ScreenshotItem WHERE rowid <= ?", {state[0][2]}));
  if (below[0][0] != state[0][1]) return false;
  RETURN_IF_ERROR(db.exec("UPDATE ScreenshotSearchState SET maxRowidItem = (" +
                          std::string(kItemAtMaxRowid) + ") WHERE id = 1"));
  return true;
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
  ASSIGN_OR_RETURN(bool current, IsCurrent(db));
  if (current) return Status::Ok();
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
    int64_t added = 0;
    // Both indexes take the same rows from the same notes, in one
    // transaction: they never disagree on what they cover.
    for (const std::string table : {SearchIndex::kTable, SearchIndex::kCjkTable}) {
      RETURN_IF_ERROR(db.exec("INSERT INTO " + table + "(" + table + ", rowid, " + names +
                              ") SELECT 'delete', itemRowid, " + names +
                              " FROM ScreenshotSearchPending WHERE indexed <> 0"));
      ASSIGN_OR_RETURN(
          added,
          db.execute("INSERT INTO " + table + "(rowid, " + names + ") SELECT rowid, " + names +
                     " FROM ScreenshotSearchSource WHERE rowid IN "
                     "(SELECT itemRowid FROM ScreenshotSearchPending) OR rowid > "
                     "(SELECT maxRowid FROM ScreenshotSearchState WHERE id = 1)"));
    }
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
  return tokenizer->tokens(text);
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
  std::string sql = "SELECT term, doc FROM temp.ScreenshotSearchTerms WHERE term IN (";
  std::vector<SqlValue> args;
  for (const auto& term : terms) {
    sql += args.empty() ? "?" : ", ?";
    args.emplace_back(term);
  }
  ASSIGN_OR_RETURN(auto rows, db.query(sql + ")", args));
  for (const auto& row : rows) {
    out.perTerm[std::get<std::string>(row[0])] = std::get<int64_t>(row[1]);
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
    ASSIGN_OR_RETURN(auto found, tokenizer->tokens(cjk ? withoutCjkText(word) : std::string(word)));
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
