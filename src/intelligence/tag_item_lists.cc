#include "intelligence/tag_item_lists.h"

#include "intelligence/tag_normalization.h"
#include "library/search_text.h"

namespace klipora::intelligence {
namespace {

using library::ScreenshotItem;

// Reads only ids and tag lists, from the tag-list index rather than the
// items, so that a large library is not read whole.
Result<std::vector<std::pair<std::string, std::string>>> TagLists(library::ModelContext& context) {
  ASSIGN_OR_RETURN(auto rows, context.database().query(
                                  "SELECT id, userTagsRaw FROM ScreenshotItem WHERE userTagsRaw <> ''"));
  std::vector<std::pair<std::string, std::string>> out;
  out.reserve(rows.size());
  for (auto& row : rows) {
    auto* id = std::get_if<std::string>(&row[0]);
    auto* tags = std::get_if<std::string>(&row[1]);
    if (id && tags) out.emplace_back(std::move(*id), std::move(*tags));
  }
  return out;
}

bool SetTags(ScreenshotItem& item, const std::vector<std::string>& tags) {
  std::string raw = library::joinList(tags);
  if (raw == item.userTagsRaw) return false;
  item.userTagsRaw = std::move(raw);
  return true;
}

}  // namespace

Result<ItemList> itemsCarrying(library::ModelContext& context,
                               const std::set<std::string>& normalizedNames) {
  ASSIGN_OR_RETURN(auto lists, TagLists(context));
  ItemList out;
  for (const auto& [id, raw] : lists) {
    bool carries = false;
    for (const auto& tag : library::splitList(raw)) {
      if (normalizedNames.count(TagNormalization::normalize(tag))) carries = true;
    }
    if (!carries) continue;
    ASSIGN_OR_RETURN(auto item, context.fetchByKey<ScreenshotItem>(id));
    if (item) out.push_back(std::move(item));
  }
  return out;
}

Result<std::vector<std::string>> tagNamesInUse(library::ModelContext& context) {
  // Each distinct list once, read from the tag-list index alone.
  ASSIGN_OR_RETURN(auto rows, context.database().query(
                                  "SELECT DISTINCT userTagsRaw FROM ScreenshotItem "
                                  "WHERE userTagsRaw <> ''"));
  std::vector<std::string> out;
  for (const auto& row : rows) {
    auto* raw = std::get_if<std::string>(&row[0]);
    if (!raw) continue;
    for (auto& tag : library::splitList(*raw)) out.push_back(std::move(tag));
  }
  return out;
}

Result<ItemList> itemsWithIDs(library::ModelContext& context, const std::vector<UUID>& ids) {
  ItemList out;
  for (const auto& id : ids) {
    ASSIGN_OR_RETURN(auto item, context.fetchByKey<ScreenshotItem>(id.uuidString()));
    if (!item) return Err(Status::NotFound("no item with id " + id.uuidString()));
    out.push_back(std::move(item));
  }
  return out;
}

bool carriesTag(const ScreenshotItem& item, const std::string& normalizedName) {
  return library::tagListContains(item.userTagsRaw, normalizedName);
}

bool addTag(ScreenshotItem& item, const std::string& name) {
  if (carriesTag(item, TagNormalization::normalize(name))) return false;
  auto tags = item.userTags();
  tags.push_back(name);
  return SetTags(item, tags);
}

bool removeTag(ScreenshotItem& item, const std::string& normalizedName) {
  std::vector<std::string> kept;
  for (auto& tag : item.userTags()) {
    if (TagNormalization::normalize(tag) != normalizedName) kept.push_back(std::move(tag));
  }
  return SetTags(item, kept);
}

bool replaceTags(ScreenshotItem& item, const std::set<std::string>& from, const std::string& to) {
  const std::string target = TagNormalization::normalize(to);
  std::vector<std::string> out;
  bool placed = false;
  for (auto& tag : item.userTags()) {
    std::string normalized = TagNormalization::normalize(tag);
    if (from.count(normalized) || normalized == target) {
      if (!placed) out.push_back(to);
      placed = true;
    } else {
      out.push_back(std::move(tag));
    }
  }
  return SetTags(item, out);
}

}  // namespace klipora::intelligence
