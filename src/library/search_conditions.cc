#include "library/search_conditions.h"

#include <sqlite3.h>

#include "library/records.h"
#include "library/search_text.h"

namespace klipora::library::search_internal {
namespace {

using Kind = SidebarSelection::Kind;

constexpr const char* kEffectiveCategory = "coalesce(userCategory, generatedCategory)";
// Written as the partial indexes of the search index declare them, so that
// SQLite can use those indexes; likely() keeps it from choosing the plain
// deletedAt index, whose statistics make "IS NULL" look selective when
// nearly every item matches it.
constexpr const char* kVisible = "deleted = 0 AND likely(deletedAt IS NULL)";
constexpr const char* kTrashed = "(deleted <> 0 OR deletedAt IS NOT NULL)";

void HasTag(sqlite3_context* context, int, sqlite3_value** argv) {
  const unsigned char* raw = sqlite3_value_text(argv[0]);
  const unsigned char* name = sqlite3_value_text(argv[1]);
  if (!raw || !name) {
    sqlite3_result_int(context, 0);
    return;
  }
  std::string_view list(reinterpret_cast<const char*>(raw),
                        static_cast<size_t>(sqlite3_value_bytes(argv[0])));
  std::string_view wanted(reinterpret_cast<const char*>(name),
                          static_cast<size_t>(sqlite3_value_bytes(argv[1])));
  sqlite3_result_int(context, tagListContains(list, wanted) ? 1 : 0);
}

void AddDateRange(SqlConditions& c, std::optional<Date> start, std::optional<Date> end) {
  if (start) c.add(std::string(kItemDate) + " >= ?", {start->timeIntervalSince1970()});
  if (end) c.add(std::string(kItemDate) + " < ?", {end->timeIntervalSince1970()});
}

void AddPreset(SqlConditions& c, DateFilterPreset preset, Date now) {
  if (auto range = dateRange(preset, now)) AddDateRange(c, range->start, range->end);
}

DateFilterPreset PresetOf(ParsedSearchQuery::DateToken token) {
  switch (token) {
    case ParsedSearchQuery::DateToken::today: return DateFilterPreset::today;
    case ParsedSearchQuery::DateToken::yesterday: return DateFilterPreset::yesterday;
    case ParsedSearchQuery::DateToken::week: return DateFilterPreset::last7Days;
    case ParsedSearchQuery::DateToken::month: return DateFilterPreset::last30Days;
  }
  return DateFilterPreset::all;
}

std::string Marks(size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += i ? ", ?" : "?";
  return out;
}

// cat: values name a built-in category (raw value, display or English name)
// or a custom category (by name, compared like tag names).
Status AddCategoryFilter(ModelContext& context, SqlConditions& c,
                         const std::vector<std::string>& values) {
  std::vector<SqlValue> builtIn;
  std::vector<SqlValue> custom;
  ASSIGN_OR_RETURN(auto customCategories, context.fetch<CustomCategory>());
  for (const auto& value : values) {
    for (ScreenshotCategory category : kAllScreenshotCategories) {
      if (value == rawValue(category) || value == lowercased(displayName(category)) ||
          value == lowercased(englishName(category))) {
        builtIn.push_back(std::string(rawValue(category)));
      }
    }
    for (const auto& cc : customCategories) {
      if (normalizedTagName(cc->name) == normalizedTagName(value)) {
        custom.push_back(cc->id.uuidString());
      }
    }
  }
  if (builtIn.empty() && custom.empty()) {
    c.matchesNothing = true;
    return Status::Ok();
  }
  std::string clause = "(";
  if (!builtIn.empty()) clause += std::string(kEffectiveCategory) + " IN (" + Marks(builtIn.size()) + ")";
  if (!builtIn.empty() && !custom.empty()) clause += " OR ";
  if (!custom.empty()) clause += "customCategoryID IN (" + Marks(custom.size()) + ")";
  clause += ")";
  builtIn.insert(builtIn.end(), custom.begin(), custom.end());
  c.add(clause, builtIn);
  return Status::Ok();
}

void AddTag(SqlConditions& c, const std::string& name) {
  std::string normalized = normalizedTagName(name);
  if (normalized.empty()) return;
  c.add("klipora_has_tag(userTagsRaw, ?)", {normalized});
  c.tagNames.push_back(normalized);
}

Status AddSelection(SqlConditions& c, const LibraryQuery& q, bool isSearch, Date now) {
  const SidebarSelection& s = q.selection;
  if (s.kind() == Kind::sharedSet) {
    return Status::InvalidArgument("a shared set's items are not part of this library");
  }
  if (s.kind() == Kind::trash) {
    c.add(kTrashed);
    return Status::Ok();
  }
  c.add(kVisible);
  if (s.kind() == Kind::archived) {
    c.add("archived <> 0");
  } else if (!(isSearch && q.showArchivedInSearch)) {
    c.add("archived = 0");
  }
  switch (s.kind()) {
    case Kind::category:
      c.add(std::string(kEffectiveCategory) + " = ?", {std::string(rawValue(s.categoryValue()))});
      break;
    case Kind::customCategory:
      c.add("customCategoryID = ?", {s.uuidValue().uuidString()});
      break;
    case Kind::tag:
      AddTag(c, s.tagName());
      break;
    case Kind::today:
      AddDateRange(c, startOfLocalDay(now), std::nullopt);
      break;
    case Kind::thisWeek:
      AddDateRange(c, startOfLocalWeek(now), std::nullopt);
      break;
    case Kind::favorites:
      c.add("favorite <> 0");
      break;
    case Kind::recentlyShared:
      c.add("shareCount > 0");
      break;
    case Kind::needsReview:
      c.add("needsReview <> 0");
      break;
    case Kind::processingFailed:
      // The failure badge: failed, or partially failed for more than the text.
      c.add("(processingStateRaw = 'failed' OR (processingStateRaw = 'partiallyFailed' AND "
            "coalesce(processingError, '') <> 'OCR failed'))");
      break;
    case Kind::uncategorized:
      c.add(std::string(kEffectiveCategory) + " = 'uncategorized' AND customCategoryID IS NULL");
      break;
    default:
      break;
  }
  return Status::Ok();
}

}  // namespace

void SqlConditions::add(std::string clause, std::vector<SqlValue> args) {
  clauses.push_back(std::move(clause));
  arguments.insert(arguments.end(), std::make_move_iterator(args.begin()),
                   std::make_move_iterator(args.end()));
}

std::string SqlConditions::where() const {
  if (clauses.empty()) return "1";
  std::string out;
  for (const auto& clause : clauses) out += (out.empty() ? "" : " AND ") + clause;
  return out;
}

Result<SqlConditions> buildConditions(ModelContext& context, const LibraryQuery& query,
                                      const ParsedSearchQuery& parsed, Date now) {
  SqlConditions c;
  RETURN_IF_ERROR(AddSelection(c, query, !parsed.isEmpty(), now));
  if (query.datePreset == DateFilterPreset::custom) {
    AddDateRange(c, query.customStart, query.customEnd);
  } else {
    AddPreset(c, query.datePreset, now);
  }
  if (parsed.date) AddPreset(c, PresetOf(*parsed.date), now);
  if (parsed.favorite) c.add(*parsed.favorite ? "favorite <> 0" : "favorite = 0");
  for (const auto& tag : parsed.tags) AddTag(c, tag);
  if (!parsed.categories.empty()) RETURN_IF_ERROR(AddCategoryFilter(context, c, parsed.categories));
  return c;
}

std::string orderTerms(SortMode mode, const std::string& rowid) {
  const std::string date = kItemDate;
  switch (mode) {
    case SortMode::newestFirst:
      return date + " DESC, " + rowid + " DESC";
    case SortMode::oldestFirst:
      return date + " ASC, " + rowid + " ASC";
    case SortMode::mostViewed:
      return "lastViewedAt IS NULL, lastViewedAt DESC, " + date + " DESC, " + rowid + " DESC";
    case SortMode::recentlyProcessed:
      return "lastProcessedAt IS NULL, lastProcessedAt DESC, " + date + " DESC, " + rowid + " DESC";
  }
  return date + " DESC, " + rowid + " DESC";
}

Status registerFunctions(Database& db) {
  // Defining a function again would expire every prepared statement of the
  // connection, so it is defined only where it is missing.
  sqlite3_stmt* probe = nullptr;
  int known = sqlite3_prepare_v2(db.handle(), "SELECT klipora_has_tag('', '')", -1, &probe, nullptr);
  sqlite3_finalize(probe);
  if (known == SQLITE_OK) return Status::Ok();
  int rc = sqlite3_create_function_v2(db.handle(), "klipora_has_tag", 2,
                                      SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, HasTag,
                                      nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) return Status::Internal("cannot register the tag filter function");
  return Status::Ok();
}

}  // namespace klipora::library::search_internal
