#include "library/search_saved.h"

#include <algorithm>

#include "library/search_text.h"

namespace klipora::library {
namespace {

Status CheckNameFree(ModelContext& context, const std::string& name, const UUID* except) {
  ASSIGN_OR_RETURN(auto all, context.fetch<SavedSearch>());
  const std::string wanted = normalizedTagName(name);
  for (const auto& s : all) {
    if (except && s->id == *except) continue;
    if (normalizedTagName(s->name) == wanted) {
      return Status::AlreadyExists("A saved search named \"" + s->name + "\" already exists");
    }
  }
  return Status::Ok();
}

}  // namespace

Result<std::shared_ptr<SavedSearch>> SavedSearches::create(ModelContext& context,
                                                           const SavedSearchDefinition& d,
                                                           Date now) {
  std::string name = trimmed(validUtf8(d.name));
  if (name.empty()) return Err(Status::InvalidArgument("A saved search needs a name"));
  auto scope = SidebarSelection::fromID(d.sidebarSelectionID);
  if (!scope) {
    return Err(Status::InvalidArgument("\"" + d.sidebarSelectionID + "\" names no sidebar entry"));
  }
  if (d.datePreset == DateFilterPreset::custom && d.dateFilterStart && d.dateFilterEnd &&
      *d.dateFilterEnd < *d.dateFilterStart) {
    return Err(Status::InvalidArgument("The date range ends before it starts"));
  }
  RETURN_IF_ERROR(CheckNameFree(context, name, nullptr));
  auto search = std::make_shared<SavedSearch>();
  search->name = name;
  search->iconName = d.iconName;
  search->query = validUtf8(d.query);
  search->sidebarSelectionID = scope->id();
  search->dateFilterPresetRaw = std::string(rawValue(d.datePreset));
  if (d.datePreset == DateFilterPreset::custom) {
    search->dateFilterStart = d.dateFilterStart;
    search->dateFilterEnd = d.dateFilterEnd;
  }
  search->sortModeRaw = std::string(rawValue(d.sortMode));
  search->createdAt = now;
  context.insert(search);
  if (Status s = context.save(); !s.ok()) {
    context.remove(search);  // drops the unsaved insert
    return Err(s);
  }
  return search;
}

Result<std::vector<std::shared_ptr<SavedSearch>>> SavedSearches::list(ModelContext& context) {
  FetchDescriptor d;
  d.sortBy = "name COLLATE NOCASE, createdAt, id";
  return context.fetch<SavedSearch>(d);
}

Result<std::shared_ptr<SavedSearch>> SavedSearches::find(ModelContext& context,
                                                         const std::string& idOrName) {
  if (auto id = UUID::Parse(idOrName)) {
    ASSIGN_OR_RETURN(auto byID, context.fetchByKey<SavedSearch>(id->uuidString()));
    if (byID) return byID;
  }
  ASSIGN_OR_RETURN(auto all, list(context));
  const std::string wanted = normalizedTagName(validUtf8(idOrName));
  for (const auto& s : all) {
    if (normalizedTagName(s->name) == wanted) return s;
  }
  return Err(Status::NotFound("no saved search named \"" + idOrName + "\""));
}

Result<LibrarySearchResult> SavedSearches::run(ModelContext& context, const SavedSearch& search,
                                               Date now, int64_t limit, int64_t offset,
                                               bool showArchivedInSearch) {
  LibraryQuery q;
  q.selection = SidebarSelection::savedSearch(search.id);
  q.limit = limit;
  q.offset = offset;
  q.showArchivedInSearch = showArchivedInSearch;
  return LibrarySearch::run(context, q, now);
}

Status SavedSearches::rename(ModelContext& context, const std::shared_ptr<SavedSearch>& search,
                             const std::string& newName) {
  std::string name = trimmed(validUtf8(newName));
  if (name.empty()) return Status::InvalidArgument("A saved search needs a name");
  RETURN_IF_ERROR(CheckNameFree(context, name, &search->id));
  std::string old = search->name;
  search->name = name;
  if (Status s = context.save(); !s.ok()) {
    search->name = old;
    return s;
  }
  return Status::Ok();
}

Status SavedSearches::remove(ModelContext& context, const std::shared_ptr<SavedSearch>& search) {
  context.remove(search);
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    return s;
  }
  return Status::Ok();
}

}  // namespace klipora::library
