// What `klipora search` and `klipora saved-search` share: reading sort modes,
// date presets, days and sidebar selections from the command line, and
// printing a search result.
#pragma once

#include <optional>
#include <string>

#include "library/search_query.h"

namespace klipora::cli {

// Each prints the problem to standard error and returns nullopt on bad text.
std::optional<library::SortMode> parseSortOption(const std::string& text);
std::optional<library::DateFilterPreset> parseDateOption(const std::string& text);
// "YYYY-MM-DD" (start of that local day) or ISO 8601.
std::optional<Date> parseDayOption(const std::string& text);
std::optional<library::SidebarSelection> parseSelectionOption(const std::string& text);

// Text: one line per item (id, date, category, title). JSON: {"query":
// {"freeText", "tags", "categories", "favorite", "date"}, "rankedByRelevance",
// "items": [records]}, absent values null.
void printSearchResult(const library::LibrarySearchResult& result, bool json);

}  // namespace klipora::cli
