// Helpers of the tag catalogue for the tag lists of screenshots: finding the
// items that carry a tag, and rewriting a list so that each tag appears once
// (compared by normalised name). Used on the context's thread.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/screenshot_item.h"

namespace klipora::intelligence {

using ItemList = std::vector<std::shared_ptr<library::ScreenshotItem>>;

// Items (trash included) whose tag list holds any of `normalizedNames`.
Result<ItemList> itemsCarrying(library::ModelContext& context,
                               const std::set<std::string>& normalizedNames);
// Every tag name in use on items, as spelled there (trash included).
Result<std::vector<std::string>> tagNamesInUse(library::ModelContext& context);
// The items with these ids, in order; NotFound names the first missing id.
Result<ItemList> itemsWithIDs(library::ModelContext& context, const std::vector<UUID>& ids);

bool carriesTag(const library::ScreenshotItem& item, const std::string& normalizedName);
// Adds `name` at the end unless the item carries it; true when changed.
bool addTag(library::ScreenshotItem& item, const std::string& name);
// Drops every tag named like `normalizedName`; true when changed.
bool removeTag(library::ScreenshotItem& item, const std::string& normalizedName);
// Replaces each tag named like any of `from` with `to`, keeping only the first
// occurrence of `to`; true when changed.
bool replaceTags(library::ScreenshotItem& item, const std::set<std::string>& from,
                 const std::string& to);

}  // namespace klipora::intelligence
