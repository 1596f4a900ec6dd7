#include "library/search_query.h"

#include <sqlite3.h>

#include <algorithm>
#include <unordered_map>

#include "library/records.h"
#include "library/search_conditions.h"
#include "library/search_index.h"
#include "platform/log.h"

namespace klipora::library {
namespace {

using search_internal::SqlConditions;

constexpr int kMaxSavedSearchDepth = 8;

// A statement stepped by hand, so a walk over the items can stop as soon as
// the page is full.
class Statement {
 public:
  static Result<Statement> prepare(Database& db, const std::string& sql,
                                   const std::vector<SqlValue>& args) {
    Statement s(db.handle());
    int rc = sqlite3_prepare_v2(db.handle(), sql.c_str(), static_cast<int>(sql.size()), &s.stmt_,
                                nullptr);
    if (rc != SQLITE_OK) return Err(s.error("search query"));
    for (size_t i = 0; i < args.size(); ++i) {
      int index = static_cast<int>(i + 1);
      const SqlValue& v = args[i];
      if (auto p = std::get_if<int64_t>(&v)) {
        rc = sqlite3_bind_int64(s.stmt_, index, *p);
      } else if (auto p = std::get_if<double>(&v)) {
        rc = sqlite3_bind_double(s.stmt_, index, *p);
      } else if (auto p = std::get_if<std::string>(&v)) {
        rc = sqlite3_bind_text64(s.stmt_, index, p->data(), p->size(), SQLITE_TRANSIENT,
                                 SQLITE_UTF8);
      } else {
        rc = sqlite3_bind_null(s.stmt_, index);
      }
      if (rc != SQLITE_OK) return Err(s.error("search query"));
    }
    return s;
  }
  Statement(Statement&& o) noexcept : db_(o.db_), stmt_(o.stmt_) { o.stmt_ = nullptr; }
  ~Statement() { sqlite3_finalize(stmt_); }

  // True with a row, false when done.
  Result<bool> step() {
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    return Err(error("search query"));
  }
  int64_t integer(int column) { return sqlite3_column_int64(stmt_, column); }
  std::string text(int column) {
    auto p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(stmt_, column))) : "";
  }

 private:
  explicit Statement(sqlite3* db) : db_(db) {}
  Status error(const char* what) const {
    int rc = sqlite3_errcode(db_) & 0xFF;
    std::string message = std::string(what) + ": " + sqlite3_errmsg(db_);
    if (rc == SQLITE_BUSY || rc == SQLITE_LOCKED) return Status::Unavailable(message);
    return Status::IoError(message);
  }
  sqlite3* db_;
  sqlite3_stmt* stmt_ = nullptr;
};

// Follows a saved-search selection to the query it stands for: its scope,
// date filter and sort, with its search text and the current one together.
Result<LibraryQuery> Resolve(ModelContext& context, const LibraryQuery& input,
                             ParsedSearchQuery* parsed) {
  LibraryQuery q = input;
  *parsed = SearchTokenParser::parse(input.searchText);
  for (int depth = 0; q.selection.kind() == SidebarSelection::Kind::savedSearch; ++depth) {
    if (depth == kMaxSavedSearchDepth) {
      return Err(Status::FailedPrecondition("saved searches refer to each other in a loop"));
    }
    const std::string key = q.selection.uuidValue().uuidString();
    ASSIGN_OR_RETURN(auto saved, context.fetchByKey<SavedSearch>(key));
    if (!saved) return Err(Status::NotFound("no saved search with id " + key));
    ParsedSearchQuery own = SearchTokenParser::parse(saved->query);
    if (!parsed->freeText.empty()) {
      own.freeText += (own.freeText.empty() ? "" : " ") + parsed->freeText;
    }
    own.tags.insert(own.tags.end(), parsed->tags.begin(), parsed->tags.end());
    own.categories.insert(own.categories.end(), parsed->categories.begin(),
                          parsed->categories.end());
    if (parsed->favorite) own.favorite = parsed->favorite;
    if (parsed->date) own.date = parsed->date;
    *parsed = std::move(own);
    q.selection = SidebarSelection::fromID(saved->sidebarSelectionID)
                      .value_or(SidebarSelection::fixed(SidebarSelection::Kind::all));
    if (input.datePreset == DateFilterPreset::all) {
      q.datePreset = saved->dateFilterPreset();
      q.customStart = saved->dateFilterStart;
      q.customEnd = saved->dateFilterEnd;
    }
    q.sortMode = saved->sortMode();
    q.rankByRelevance = false;
  }
  return q;
}

// What the query asks of one full-text index.
struct IndexMatch {
  std::string table;
  std::string expression;
};

Result<std::vector<int64_t>> MatchingRowids(Database& db, const IndexMatch& m) {
  ASSIGN_OR_RETURN(auto s, Statement::prepare(db,
                                              "SELECT rowid FROM " + m.table + " WHERE " +
                                                  m.table + " MATCH ?",
                                              {m.expression}));
  std::vector<int64_t> out;
  while (true) {
    ASSIGN_OR_RETURN(bool row, s.step());
    if (!row) break;
    out.push_back(s.integer(0));
  }
  if (!std::is_sorted(out.begin(), out.end())) std::sort(out.begin(), out.end());
  return out;
}

// The items every index asked for matches, in rowid order.
Result<std::vector<int64_t>> MatchingRowids(Database& db, const std::vector<IndexMatch>& asked) {
  ASSIGN_OR_RETURN(auto out, MatchingRowids(db, asked[0]));
  for (size_t i = 1; i < asked.size() && !out.empty(); ++i) {
    ASSIGN_OR_RETURN(auto also, MatchingRowids(db, asked[i]));
    std::vector<int64_t> both;
    std::set_intersection(out.begin(), out.end(), also.begin(), also.end(),
                          std::back_inserter(both));
    out = std::move(both);
  }
  return out;
}

std::string Page(const LibraryQuery& q) {
  return " LIMIT " + std::to_string(q.limit) + " OFFSET " + std::to_string(std::max<int64_t>(0, q.offset));
}

Result<std::vector<std::string>> Collect(Statement s) {
  std::vector<std::string> ids;
  while (true) {
    ASSIGN_OR_RETURN(bool row, s.step());
    if (!row) return ids;
    ids.push_back(s.text(0));
  }
}

// No text to match: the conditions alone, in SQL.
Result<std::vector<std::string>> PlainPage(Database& db, const LibraryQuery& q,
                                           const SqlConditions& c) {
  ASSIGN_OR_RETURN(auto s, Statement::prepare(db,
                                              "SELECT id FROM ScreenshotItem WHERE " + c.where() +
                                                  " ORDER BY " + search_internal::orderTerms(q.sortMode) +
                                                  Page(q),
                                              c.arguments));
  return Collect(std::move(s));
}

// Few matches: join them with the items, ranked (by the first index asked)
// when asked.
Result<std::vector<std::string>> JoinedPage(Database& db, const LibraryQuery& q,
                                            const SqlConditions& c,
                                            const std::vector<IndexMatch>& asked, bool ranked) {
  const std::string& table = asked[0].table;
  std::string sql = "SELECT s.id FROM " + table + " JOIN ScreenshotItem AS s ON s.rowid = " +
                    table + ".rowid WHERE " + table + " MATCH ? AND ";
  std::vector<SqlValue> args{asked[0].expression};
  for (size_t i = 1; i < asked.size(); ++i) {
    sql += "s.rowid IN (SELECT rowid FROM " + asked[i].table + " WHERE " + asked[i].table +
           " MATCH ?) AND ";
    args.emplace_back(asked[i].expression);
  }
  args.insert(args.end(), c.arguments.begin(), c.arguments.end());
  std::string order = search_internal::orderTerms(q.sortMode, "s.rowid");
  if (ranked) order = table + ".rank, " + order;
  ASSIGN_OR_RETURN(auto s, Statement::prepare(db, sql + c.where() + " ORDER BY " + order + Page(q),
                                              args));
  return Collect(std::move(s));
}

// Many matches: walk the items in the sort order and keep the matching ones
// until the page is full; with most items matching, that is a short walk.
Result<std::vector<std::string>> WalkedPage(Database& db, const LibraryQuery& q,
                                            const SqlConditions& c,
                                            const std::vector<int64_t>& matches) {
  ASSIGN_OR_RETURN(auto s, Statement::prepare(db,
                                              "SELECT rowid, id FROM ScreenshotItem WHERE " +
                                                  c.where() + " ORDER BY " +
                                                  search_internal::orderTerms(q.sortMode),
                                              c.arguments));
  std::vector<std::string> ids;
  int64_t skip = std::max<int64_t>(0, q.offset);
  while (static_cast<int64_t>(ids.size()) < q.limit) {
    ASSIGN_OR_RETURN(bool row, s.step());
    if (!row) break;
    if (!std::binary_search(matches.begin(), matches.end(), s.integer(0))) continue;
    if (skip > 0) {
      --skip;
      continue;
    }
    ids.push_back(s.text(1));
  }
  return ids;
}

Result<std::vector<std::shared_ptr<ScreenshotItem>>> FetchInOrder(
    ModelContext& context, const std::vector<std::string>& ids) {
  std::unordered_map<std::string, std::shared_ptr<ScreenshotItem>> byID;
  constexpr size_t kChunk = 500;
  for (size_t at = 0; at < ids.size(); at += kChunk) {
    FetchDescriptor d;
    size_t end = std::min(ids.size(), at + kChunk);
    for (size_t i = at; i < end; ++i) {
      d.predicate += d.arguments.empty() ? "?" : ", ?";
      d.arguments.push_back(ids[i]);
    }
    d.predicate = "id IN (" + d.predicate + ")";
    ASSIGN_OR_RETURN(auto items, context.fetch<ScreenshotItem>(d));
    for (auto& item : items) byID[item->id.uuidString()] = std::move(item);
  }
  std::vector<std::shared_ptr<ScreenshotItem>> out;
  out.reserve(ids.size());
  for (const auto& id : ids) {
    auto it = byID.find(id);
    if (it != byID.end()) out.push_back(it->second);
  }
  return out;
}

}  // namespace

Result<LibrarySearchResult> LibrarySearch::run(ModelContext& context, const LibraryQuery& input,
                                               Date now) {
  Database& db = context.database();
  if (auto caughtUp = SearchIndex::catchUp(db); !caughtUp) {
    log::warning("Library", "Search index is behind: %s", caughtUp.error().message().c_str());
  }
  RETURN_IF_ERROR(search_internal::registerFunctions(db));
  LibrarySearchResult result;
  ASSIGN_OR_RETURN(LibraryQuery q, Resolve(context, input, &result.parsed));
  ASSIGN_OR_RETURN(SqlConditions c, search_internal::buildConditions(context, q, result.parsed, now));
  if (c.matchesNothing || q.limit <= 0) return result;

  ASSIGN_OR_RETURN(auto text, SearchIndex::matchExpressions(db, result.parsed.freeText));
  std::string match = text.words;
  for (const auto& tag : c.tagNames) {
    ASSIGN_OR_RETURN(std::string e, SearchIndex::tagExpression(db, tag));
    if (!e.empty()) match += (match.empty() ? "" : " AND ") + e;
  }
  // The index of the typed words ranks; CJK words alone are ranked by theirs.
  std::vector<IndexMatch> asked;
  if (!match.empty()) asked.push_back({SearchIndex::kTable, match});
  if (!text.cjk.empty()) {
    auto at = text.words.empty() ? asked.begin() : asked.end();
    asked.insert(at, {SearchIndex::kCjkTable, text.cjk});
  }
  std::vector<std::string> ids;
  if (asked.empty()) {
    ASSIGN_OR_RETURN(ids, PlainPage(db, q, c));
  } else {
    ASSIGN_OR_RETURN(auto matches, MatchingRowids(db, asked));
    if (matches.empty()) return result;
    if (static_cast<int64_t>(matches.size()) <= kRankedMatchLimit) {
      result.rankedByRelevance =
          q.rankByRelevance && !(text.words.empty() && text.cjk.empty());
      ASSIGN_OR_RETURN(ids, JoinedPage(db, q, c, asked, result.rankedByRelevance));
    } else {
      ASSIGN_OR_RETURN(ids, WalkedPage(db, q, c, matches));
    }
  }
  ASSIGN_OR_RETURN(result.items, FetchInOrder(context, ids));
  return result;
}

}  // namespace klipora::library
