#include "library/search_index.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <memory>

#include "library/search_cjk.h"
#include "library/search_index_schema.h"
#include "library/search_text.h"
#include "platform/log.h"

namespace klipora::library {
namespace {

using search_schema::columnNames;
using search_schema::Stored;

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
  ASSIGN_OR_RETURN(Stored stored, search_schema::inspect(db));
  if (stored == Stored::current) return Status::Ok();
  if (stored == Stored::upgradable) {
    log::info("Library", "Bringing the search index up to date");
    return search_schema::upgrade(db);
  }
  log::info("Library", "Building the search index");
  return search_schema::createAndFill(db);
}

Status SearchIndex::rebuild(Database& db) {
  RETURN_IF_ERROR(db.exec("BEGIN IMMEDIATE"));
  Status s = search_schema::createAndFill(db);
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
  const std::string names = columnNames();
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
                            ") SELECT 'delete', itemRowid, " + columnNames("klipora_words") +
                            " FROM ScreenshotSearchPending WHERE indexed <> 0"));
    ASSIGN_OR_RETURN(int64_t added,
                     db.execute("INSERT INTO " + words + "(rowid, " + names + ") SELECT rowid, " +
                                names + " FROM " + search_schema::kWordsView + rows));
    RETURN_IF_ERROR(db.exec("INSERT INTO " + cjk + "(" + cjk + ", rowid, " + names +
                            ") SELECT 'delete', itemRowid, " + names +
                            " FROM ScreenshotSearchPending WHERE indexed <> 0 AND "
                            "klipora_has_cjk(" +
                            names + ")"));
    ASSIGN_OR_RETURN(int64_t cjkAdded,
                     db.execute("INSERT INTO " + cjk + "(rowid, " + names + ") SELECT rowid, " +
                                names + " FROM " + search_schema::kCjkView + rows));
    (void)cjkAdded;
    RETURN_IF_ERROR(search_schema::advanceState(db));
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
        append(out.cjk,
               "\"" + toUtf8(run.characters) + "\"" + (run.characters.size() == 1 ? " *" : ""));
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
