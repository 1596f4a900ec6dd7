// The SQL conditions and order of a library query, built from its selection,
// parsed tokens and date filters. Internal to the library query; columns are
// the ScreenshotItem field names, unqualified.
#pragma once

#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/search_query.h"

namespace klipora::library::search_internal {

// The date an item is filed under: when it was taken, else when it came in.
inline constexpr const char* kItemDate = "coalesce(capturedAt, importedAt)";

struct SqlConditions {
  std::vector<std::string> clauses;
  std::vector<SqlValue> arguments;
  std::vector<std::string> tagNames;  // normalised; every one must be on the item
  bool matchesNothing = false;        // a filter that no item can pass

  void add(std::string clause, std::vector<SqlValue> args = {});
  std::string where() const;  // the clauses joined with AND; "1" when none
};

// `parsed` is the query's search text already parsed (and merged with a saved
// search's). Fails only on store errors and shared-set selections.
Result<SqlConditions> buildConditions(ModelContext& context, const LibraryQuery& query,
                                      const ParsedSearchQuery& parsed, Date now);

// ORDER BY terms for a sort mode; the final tie-break is the row order.
std::string orderTerms(SortMode mode, const std::string& rowid = "rowid");

// Registers klipora_has_tag(userTagsRaw, normalizedName) on the connection.
Status registerFunctions(Database& db);

}  // namespace klipora::library::search_internal
