// LibrarySearch: the library query behind the grid, the search field and
// saved searches. It filters the items by a SidebarSelection, the tokens and
// free text of the search field, a date filter and the archive setting, and
// sorts them by a SortMode.
//
// Matching: the free text is matched against each item's searchable text
// through the full-text index (search_index.h): every word must occur, as a
// word prefix when it has two characters or more, letter case and diacritics
// ignored. Results are ranked by relevance (the sort mode breaks ties) when
// `rankByRelevance` is set and at most kRankedMatchLimit items match; a word
// found in more items than that says little about relevance, and the page is
// then ordered by the sort mode alone (`rankedByRelevance` tells which).
//
// Filters: tag: by normalised tag name (all must be present); cat: by built-in
// category raw value, display name or English name, or custom category name
// (any may match); fav:true/false by the favourite mark; date: today,
// yesterday, week (last 7 days) and month (last 30 days). Dates are the
// capture date, or the import date when the capture date is unknown. Trashed
// items appear only in the trash view; archived items only in the archived
// view, and in searches when `showArchivedInSearch` is set.
//
// The query reads what is saved in the store; unsaved changes of the context
// are not seen. It first brings the full-text index up to date (a write),
// and carries on with the index as it is when that fails (logged).
//
// Thread rules: uses the context on the caller's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/enums.h"
#include "library/model_context.h"
#include "library/screenshot_item.h"
#include "library/search_token_parser.h"
#include "library/sidebar_selection.h"

namespace klipora::library {

struct LibraryQuery {
  SidebarSelection selection = SidebarSelection::fixed(SidebarSelection::Kind::all);
  std::string searchText{};  // as typed: free text and tokens
  DateFilterPreset datePreset = DateFilterPreset::all;
  std::optional<Date> customStart{};  // bounds of DateFilterPreset::custom
  std::optional<Date> customEnd{};
  SortMode sortMode = SortMode::newestFirst;
  bool rankByRelevance = true;
  bool showArchivedInSearch = false;
  int64_t limit = 200;
  int64_t offset = 0;
};

struct LibrarySearchResult {
  // What the search text meant; for a saved search, its query and the
  // current text together.
  ParsedSearchQuery parsed;
  std::vector<std::shared_ptr<ScreenshotItem>> items;
  bool rankedByRelevance = false;
};

class LibrarySearch {
 public:
  static constexpr int64_t kRankedMatchLimit = 4000;

  // Fails with InvalidArgument for a shared-set selection (its items live in
  // the share, not in this library) and NotFound for a saved search that no
  // longer exists; store errors pass through. Bad search text never fails.
  static Result<LibrarySearchResult> run(ModelContext& context, const LibraryQuery& query,
                                         Date now);
};

}  // namespace klipora::library
