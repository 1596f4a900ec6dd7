#include "intelligence/tag_catalog_service.h"

#include <algorithm>
#include <map>
#include <set>

#include "intelligence/tag_item_lists.h"
#include "library/screenshot_item.h"
#include "platform/localization.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

using library::ModelContext;
using library::UserTag;

Result<std::shared_ptr<UserTag>> FindTag(ModelContext& context, const std::string& normalized) {
  library::FetchDescriptor d;
  d.predicate = "normalizedName = ?";
  d.arguments = {normalized};
  d.sortBy = "createdAt, id";
  ASSIGN_OR_RETURN(auto tags, context.fetch<UserTag>(d));
  if (tags.empty()) return std::shared_ptr<UserTag>();
  return tags.front();
}

Status CheckColor(const std::optional<std::string>& colorHex) {
  if (colorHex && !TagNormalization::isColorHex(*colorHex)) {
    return Status::InvalidArgument("\"" + *colorHex + "\" is not a colour like #3B82F6");
  }
  return Status::Ok();
}

std::vector<UUID> IDs(const ItemList& items) {
  std::vector<UUID> out;
  for (const auto& item : items) out.push_back(item->id);
  return out;
}

}  // namespace

TagCatalogService::TagCatalogService(Clock& clock, ItemsChanged itemsChanged)
    : clock_(clock), itemsChanged_(std::move(itemsChanged)) {}

Status TagCatalogService::commit(ModelContext& context, const std::vector<UUID>& changedItems) {
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    return s;
  }
  if (!changedItems.empty() && itemsChanged_) itemsChanged_(changedItems);
  return Status::Ok();
}

Result<std::shared_ptr<UserTag>> TagCatalogService::create(ModelContext& context,
                                                           const std::string& name,
                                                           std::optional<std::string> colorHex) {
  if (auto error = validateTagName(name)) return Err(toStatus(*error));
  RETURN_IF_ERROR(CheckColor(colorHex));
  const std::string normalized = TagNormalization::normalize(name);
  ASSIGN_OR_RETURN(auto existing, FindTag(context, normalized));
  if (existing) return Err(toStatus(UserTagValidationError::duplicateNormalizedName));
  auto tag = std::make_shared<UserTag>();
  tag->normalizedName = normalized;
  tag->name = library::trimmed(name);
  tag->colorHex = colorHex.value_or(TagNormalization::defaultColorHex(name));
  tag->createdAt = tag->updatedAt = clock_.now();
  context.insert(tag);
  RETURN_IF_ERROR(commit(context, {}));
  return tag;
}

Result<std::shared_ptr<UserTag>> TagCatalogService::ensureExists(
    ModelContext& context, const std::string& name, std::optional<std::string> colorHexIfCreated) {
  const std::string normalized = TagNormalization::normalize(name);
  ASSIGN_OR_RETURN(auto existing, FindTag(context, normalized));
  if (existing) return existing;
  return create(context, name, std::move(colorHexIfCreated));
}

Status TagCatalogService::assign(ModelContext& context, const std::string& name,
                                 const std::vector<UUID>& itemIDs) {
  ASSIGN_OR_RETURN(auto items, itemsWithIDs(context, itemIDs));
  ASSIGN_OR_RETURN(auto tag, ensureExists(context, name));
  ItemList changed;
  for (const auto& item : items) {
    if (addTag(*item, tag->name)) changed.push_back(item);
  }
  return commit(context, IDs(changed));
}

Status TagCatalogService::remove(ModelContext& context, const std::string& name,
                                 const std::vector<UUID>& itemIDs) {
  ASSIGN_OR_RETURN(auto items, itemsWithIDs(context, itemIDs));
  const std::string normalized = TagNormalization::normalize(name);
  ItemList changed;
  for (const auto& item : items) {
    if (removeTag(*item, normalized)) changed.push_back(item);
  }
  return commit(context, IDs(changed));
}

Result<bool> TagCatalogService::toggle(ModelContext& context, const std::string& name,
                                       std::optional<std::string> colorHexIfCreated,
                                       const std::vector<UUID>& itemIDs) {
  ASSIGN_OR_RETURN(auto items, itemsWithIDs(context, itemIDs));
  const std::string normalized = TagNormalization::normalize(name);
  bool allCarry = !items.empty() && std::all_of(items.begin(), items.end(), [&](const auto& item) {
    return carriesTag(*item, normalized);
  });
  if (allCarry) {
    RETURN_IF_ERROR(remove(context, name, itemIDs));
    return false;
  }
  ASSIGN_OR_RETURN(auto tag, ensureExists(context, name, std::move(colorHexIfCreated)));
  (void)tag;
  RETURN_IF_ERROR(assign(context, name, itemIDs));
  return true;
}

Result<TagRenameOutcome> TagCatalogService::rename(ModelContext& context,
                                                   const std::string& oldName,
                                                   const std::string& newName,
                                                   std::optional<std::string> colorHex,
                                                   const ConfirmMerge& confirm) {
  if (auto error = validateTagName(newName)) return Err(toStatus(*error));
  RETURN_IF_ERROR(CheckColor(colorHex));
  const std::string from = TagNormalization::normalize(oldName);
  const std::string to = TagNormalization::normalize(newName);
  ASSIGN_OR_RETURN(auto tag, FindTag(context, from));
  ASSIGN_OR_RETURN(auto items, itemsCarrying(context, {from}));
  if (!tag && items.empty()) return Err(Status::NotFound("no tag named \"" + oldName + "\""));

  ASSIGN_OR_RETURN(auto target, to == from ? Result<std::shared_ptr<UserTag>>(nullptr)
                                          : FindTag(context, to));
  TagRenameOutcome outcome = TagRenameOutcome::renamed;
  std::shared_ptr<UserTag> survivor = tag;
  if (target) {
    // TRANSLATORS: Title of the question asked when a renamed tag takes an existing name
    TagMergeQuestion question{tr("Tag Already Exists"),
                              "A tag named '" + target->name + "'" +
                                  // TRANSLATORS: End of "A tag named 'x' already exists. Merge these tags?"
                                  tr(" already exists. Merge these tags?")};
    if (!confirm || !confirm(question)) return TagRenameOutcome::cancelled;
    outcome = TagRenameOutcome::merged;
    survivor = target;
    if (tag) context.remove(tag);
  } else if (!survivor) {
    survivor = std::make_shared<UserTag>();
    survivor->colorHex = TagNormalization::defaultColorHex(newName);
    survivor->createdAt = clock_.now();
    context.insert(survivor);
  }
  if (outcome == TagRenameOutcome::renamed) {
    survivor->name = library::trimmed(newName);
    survivor->normalizedName = to;
  }
  if (colorHex) survivor->colorHex = *colorHex;
  survivor->updatedAt = clock_.now();
  ItemList changed;
  for (const auto& item : items) {
    if (replaceTags(*item, {from}, survivor->name)) changed.push_back(item);
  }
  RETURN_IF_ERROR(commit(context, IDs(changed)));
  return outcome;
}

Status TagCatalogService::deleteTag(ModelContext& context, const std::string& name) {
  const std::string normalized = TagNormalization::normalize(name);
  ASSIGN_OR_RETURN(auto tag, FindTag(context, normalized));
  ASSIGN_OR_RETURN(auto items, itemsCarrying(context, {normalized}));
  if (!tag && items.empty()) return Status::NotFound("no tag named \"" + name + "\"");
  // Entries that share the name (before the catalogue was reconciled) go too.
  library::FetchDescriptor d;
  d.predicate = "normalizedName = ?";
  d.arguments = {normalized};
  ASSIGN_OR_RETURN(auto entries, context.fetch<UserTag>(d));
  for (const auto& entry : entries) context.remove(entry);
  for (const auto& item : items) removeTag(*item, normalized);
  return commit(context, IDs(items));
}

Result<int64_t> TagCatalogService::usageCount(ModelContext& context, const std::string& name) {
  ASSIGN_OR_RETURN(auto items, itemsCarrying(context, {TagNormalization::normalize(name)}));
  return static_cast<int64_t>(items.size());
}

std::string TagCatalogService::deleteConfirmation(int64_t usage) {
  if (usage == 0) {
    // TRANSLATORS: Confirmation before deleting a tag no screenshot carries
    return tr("This tag will be removed from your catalog. This action can’t be undone.");
  }
  // TRANSLATORS: Confirmation before deleting a tag; a number of screenshots follows
  return tr("This tag will be removed from your catalog and from ") + std::to_string(usage) +
         (usage == 1 ? " screenshot." : " screenshots.");
}

Result<std::vector<TagSuggestion>> TagCatalogService::suggestions(ModelContext& context) {
  ASSIGN_OR_RETURN(auto rows, context.database().query(
                                  "SELECT userTagsRaw FROM ScreenshotItem WHERE userTagsRaw <> '' "
                                  "AND deleted = 0 AND deletedAt IS NULL"));
  std::map<std::string, int64_t> counts;
  for (const auto& row : rows) {
    auto* raw = std::get_if<std::string>(&row[0]);
    if (!raw) continue;
    std::set<std::string> seen;
    for (const auto& tag : library::splitList(*raw)) seen.insert(TagNormalization::normalize(tag));
    for (const auto& n : seen) ++counts[n];
  }
  library::FetchDescriptor d;
  d.sortBy = "createdAt, id";
  ASSIGN_OR_RETURN(auto tags, context.fetch<UserTag>(d));
  std::vector<TagSuggestion> out;
  for (const auto& t : tags) {
    out.push_back({t->id, t->name, t->normalizedName, t->colorHex, counts[t->normalizedName]});
  }
  std::stable_sort(out.begin(), out.end(), [](const TagSuggestion& a, const TagSuggestion& b) {
    if (*a.count != *b.count) return *a.count > *b.count;
    return a.normalizedName < b.normalizedName;
  });
  return out;
}

Status TagCatalogService::ensureCatalogSynced(ModelContext& context) {
  if (didEnsureCatalogThisLaunch_) return Status::Ok();
  library::FetchDescriptor d;
  d.sortBy = "createdAt, id";
  ASSIGN_OR_RETURN(auto tags, context.fetch<UserTag>(d));
  std::map<std::string, std::shared_ptr<UserTag>> byName;
  int merged = 0;
  for (const auto& tag : tags) {
    std::string normalized = TagNormalization::normalize(tag->name);
    if (normalized.empty()) normalized = tag->normalizedName;
    auto [it, inserted] = byName.emplace(normalized, tag);
    if (!inserted) {  // the oldest entry of the name survives
      context.remove(tag);
      ++merged;
    } else if (tag->normalizedName != normalized) {
      tag->normalizedName = normalized;
    }
  }
  int added = 0;
  ASSIGN_OR_RETURN(auto names, tagNamesInUse(context));
  for (const auto& name : names) {
    std::string normalized = TagNormalization::normalize(name);
    if (normalized.empty() || byName.count(normalized)) continue;
    auto tag = std::make_shared<UserTag>();
    tag->normalizedName = normalized;
    tag->name = library::trimmed(name);
    tag->colorHex = TagNormalization::defaultColorHex(name);
    tag->createdAt = tag->updatedAt = clock_.now();
    context.insert(tag);
    byName.emplace(normalized, tag);
    ++added;
  }
  RETURN_IF_ERROR(commit(context, {}));
  if (merged || added) {
    log::info("Library", "Tag catalogue reconciled: %d duplicate entries merged, %d added", merged,
              added);
  }
  didEnsureCatalogThisLaunch_ = true;
  return Status::Ok();
}

}  // namespace klipora::intelligence
