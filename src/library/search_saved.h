// SavedSearches: the operations on saved searches (named, re-runnable library
// queries shown in the sidebar): create, list, find, run, rename, delete.
// Names are compared like tag names (trimmed, blanks collapsed, letter case
// ignored) and must be unique, so the sidebar never shows two alike.
//
// Each change is saved at once; when the save fails the change is undone in
// the context and the error returned, so nothing half-done remains.
//
// Thread rules: uses the context on the caller's thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/records.h"
#include "library/search_query.h"

namespace klipora::library {

struct SavedSearchDefinition {
  std::string name{};
  std::string query{};
  std::string sidebarSelectionID = "all";
  DateFilterPreset datePreset = DateFilterPreset::all;
  std::optional<Date> dateFilterStart{};  // custom range only
  std::optional<Date> dateFilterEnd{};
  SortMode sortMode = SortMode::newestFirst;
  std::string iconName = "magnifyingglass";
};

class SavedSearches {
 public:
  // InvalidArgument for an empty name, an unknown scope or a custom range
  // that ends before it starts; AlreadyExists for a name in use.
  static Result<std::shared_ptr<SavedSearch>> create(ModelContext& context,
                                                     const SavedSearchDefinition& definition,
                                                     Date now);
  // Sorted by name, then creation.
  static Result<std::vector<std::shared_ptr<SavedSearch>>> list(ModelContext& context);
  // By id (any case) or by name; NotFound when neither matches.
  static Result<std::shared_ptr<SavedSearch>> find(ModelContext& context,
                                                   const std::string& idOrName);
  // Runs the saved query with its scope, date filter and sort.
  static Result<LibrarySearchResult> run(ModelContext& context, const SavedSearch& search,
                                         Date now, int64_t limit = 200, int64_t offset = 0,
                                         bool showArchivedInSearch = false);
  static Status rename(ModelContext& context, const std::shared_ptr<SavedSearch>& search,
                       const std::string& newName);
  static Status remove(ModelContext& context, const std::shared_ptr<SavedSearch>& search);
};

}  // namespace klipora::library
