#include "intelligence/library_deduplicator.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "intelligence/tag_item_lists.h"
#include "library/records.h"
#include "library/search_text.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

using library::CustomCategory;
using library::ModelContext;
using library::SavedSearch;
using library::ScreenshotItem;
using Report = LibraryDeduplicator::Report;

template <typename R>
void SortBySurvivorOrder(std::vector<std::shared_ptr<R>>& members) {
  std::sort(members.begin(), members.end(),
            [](const auto& a, const auto& b) { return a->id.uuidString() < b->id.uuidString(); });
}

Result<Report> Commit(ModelContext& context, Report report) {
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    return Err(s.WithContext("merging duplicates failed"));
  }
  return report;
}

void Absorb(ScreenshotItem& survivor, const ScreenshotItem& other) {
  for (const auto& tag : other.userTags()) addTag(survivor, tag);
  if (!survivor.hasUserTitle() && other.hasUserTitle()) survivor.userTitle = other.userTitle;
  if (!survivor.userNote && other.userNote) survivor.userNote = other.userNote;
  if (!survivor.customCategoryID && other.customCategoryID) {
    survivor.customCategoryID = other.customCategoryID;
  }
  if (!survivor.userCategory && other.userCategory) survivor.userCategory = other.userCategory;
  survivor.favorite = survivor.favorite || other.favorite;
}

std::string Placeholders(size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += i ? ", ?" : "?";
  return out;
}

}  // namespace

Result<std::vector<std::vector<UUID>>> LibraryDeduplicator::duplicateGroups(
    ModelContext& context, const std::optional<std::set<std::string>>& checksums) {
  std::string sql =
      "SELECT checksum, id FROM ScreenshotItem WHERE checksum IN (SELECT checksum FROM "
      "ScreenshotItem WHERE checksum <> ''";
  std::vector<library::SqlValue> args;
  if (checksums) {
    if (checksums->empty()) return std::vector<std::vector<UUID>>{};
    sql += " AND checksum IN (" + Placeholders(checksums->size()) + ")";
    for (const auto& c : *checksums) args.push_back(c);
  }
  sql += " GROUP BY checksum HAVING count(*) > 1) ORDER BY checksum, id";
  ASSIGN_OR_RETURN(auto rows, context.database().query(sql, args));
  std::map<std::string, std::vector<UUID>> byChecksum;
  for (const auto& row : rows) {
    auto* checksum = std::get_if<std::string>(&row[0]);
    auto* id = std::get_if<std::string>(&row[1]);
    if (!checksum || !id) continue;
    if (auto uuid = UUID::Parse(*id)) byChecksum[*checksum].push_back(*uuid);
  }
  std::vector<std::vector<UUID>> groups;
  for (auto& [checksum, ids] : byChecksum) {
    std::sort(ids.begin(), ids.end(),
              [](const UUID& a, const UUID& b) { return a.uuidString() < b.uuidString(); });
    if (ids.size() > 1) groups.push_back(std::move(ids));
  }
  return groups;
}

Result<Report> LibraryDeduplicator::mergeScreenshotGroups(
    const std::vector<std::vector<UUID>>& groups, ModelContext& context, const Hooks& hooks) {
  Report report;
  for (const auto& group : groups) {
    std::vector<std::shared_ptr<ScreenshotItem>> members;
    for (const auto& id : group) {
      ASSIGN_OR_RETURN(auto item, context.fetchByKey<ScreenshotItem>(id.uuidString()));
      if (item) members.push_back(std::move(item));
    }
    if (members.size() < 2) continue;  // rows gone since the group was found
    SortBySurvivorOrder(members);
    auto& survivor = members.front();
    for (size_t i = 1; i < members.size(); ++i) {
      Absorb(*survivor, *members[i]);
      if (hooks.touched) hooks.touched(*members[i], true);
      if (hooks.diagnostic) {
        std::string path = hooks.relativePath ? hooks.relativePath(members[i]->libraryPath)
                                              : members[i]->libraryPath;
        hooks.diagnostic("dedupe: " + members[i]->id.uuidString() + " (" + path + ") merged into " +
                         survivor->id.uuidString());
      }
      context.remove(members[i]);
      ++report.screenshots;
    }
    if (hooks.touched) hooks.touched(*survivor, false);
  }
  return Commit(context, report);
}

Status LibraryDeduplicator::absorbRemoteDeletes(const std::vector<UUID>& itemIDs,
                                                ModelContext& context, const Hooks& hooks) {
  for (const auto& id : itemIDs) {
    ASSIGN_OR_RETURN(auto item, context.fetchByKey<ScreenshotItem>(id.uuidString()));
    if (!item) continue;
    if (hooks.touched) hooks.touched(*item, true);
    context.remove(item);
  }
  auto done = Commit(context, {});
  return done ? Status::Ok() : done.error();
}

Result<Report> LibraryDeduplicator::mergeDuplicateCategories(ModelContext& context) {
  ASSIGN_OR_RETURN(auto all, context.fetch<CustomCategory>());
  std::map<std::string, std::vector<std::shared_ptr<CustomCategory>>> byName;
  for (auto& c : all) byName[library::normalizedTagName(c->name)].push_back(c);
  Report report;
  for (auto& [name, members] : byName) {
    if (members.size() < 2) continue;
    SortBySurvivorOrder(members);
    auto& survivor = members.front();
    for (size_t i = 1; i < members.size(); ++i) {
      auto& other = members[i];
      if (!survivor->categoryDescription) survivor->categoryDescription = other->categoryDescription;
      if (!survivor->keywordsRaw) survivor->keywordsRaw = other->keywordsRaw;
      if (!survivor->embeddingData) survivor->embeddingData = other->embeddingData;
      library::FetchDescriptor filed;
      filed.predicate = "customCategoryID = ?";
      filed.arguments = {other->id.uuidString()};
      ASSIGN_OR_RETURN(auto items, context.fetch<ScreenshotItem>(filed));
      for (auto& item : items) item->customCategoryID = survivor->id;
      library::FetchDescriptor linked;
      linked.predicate = "linkedCategoryID = ?";
      linked.arguments = {other->id.uuidString()};
      ASSIGN_OR_RETURN(auto shares, context.fetch<library::ShareRecord>(linked));
      for (auto& share : shares) share->linkedCategoryID = survivor->id;
      context.remove(other);
      ++report.categories;
    }
  }
  return Commit(context, report);
}

Result<Report> LibraryDeduplicator::mergeDuplicateSavedSearches(ModelContext& context) {
  ASSIGN_OR_RETURN(auto all, context.fetch<SavedSearch>());
  using Key = std::tuple<std::string, std::string, std::string, std::string,
                         std::optional<double>, std::optional<double>, std::string>;
  auto seconds = [](const std::optional<Date>& d) {
    return d ? std::optional<double>(d->timeIntervalSince1970()) : std::nullopt;
  };
  std::map<Key, std::vector<std::shared_ptr<SavedSearch>>> groups;
  for (auto& s : all) {
    groups[Key{library::normalizedTagName(s->name), s->query, s->sidebarSelectionID,
               s->dateFilterPresetRaw, seconds(s->dateFilterStart), seconds(s->dateFilterEnd),
               s->sortModeRaw}]
        .push_back(s);
  }
  Report report;
  for (auto& [key, members] : groups) {
    if (members.size() < 2) continue;
    SortBySurvivorOrder(members);
    for (size_t i = 1; i < members.size(); ++i) {
      // Searches scoped to a removed one follow it to the survivor.
      const std::string oldScope = "savedSearch:" + members[i]->id.uuidString();
      for (auto& s : all) {
        if (s->sidebarSelectionID == oldScope) {
          s->sidebarSelectionID = "savedSearch:" + members.front()->id.uuidString();
        }
      }
      context.remove(members[i]);
      ++report.savedSearches;
    }
  }
  return Commit(context, report);
}

Result<Report> LibraryDeduplicator::run(ModelContext& context, const Hooks& hooks) {
  Report report;
  ASSIGN_OR_RETURN(auto groups, duplicateGroups(context));
  ASSIGN_OR_RETURN(Report screenshots, mergeScreenshotGroups(groups, context, hooks));
  report += screenshots;
  ASSIGN_OR_RETURN(Report categories, mergeDuplicateCategories(context));
  report += categories;
  ASSIGN_OR_RETURN(Report searches, mergeDuplicateSavedSearches(context));
  report += searches;
  if (!report.isEmpty()) {
    log::info("Library", "dedupe merged %ld screenshots, %ld categories, %ld saved searches",
              static_cast<long>(report.screenshots), static_cast<long>(report.categories),
              static_cast<long>(report.savedSearches));
  }
  return report;
}

}  // namespace klipora::intelligence
