// TagCatalogService: the tag catalogue (one UserTag per distinct normalised
// name) and the tag lists of the screenshots, kept in step when tags are
// created, assigned, removed, toggled, renamed, merged or deleted.
//
// Items carry tags by display name in userTagsRaw; the catalogue gives each
// name its colour and canonical spelling. Every operation saves before it
// returns; when the save fails the context is rolled back, so the catalogue
// and the screenshots stay as they were, and the error is returned. After a
// change to screenshots, `itemsChanged` receives their ids (the coordinator
// refreshes the library view and cloud sync from it).
//
// Thread rules: one service per launch, used on the context's thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "intelligence/tag_normalization.h"
#include "library/model_context.h"
#include "library/records.h"
#include "platform/clock.h"

namespace klipora::intelligence {

struct TagSuggestion {
  UUID id;
  std::string name;
  std::string normalizedName;
  std::string colorHex;
  std::optional<int64_t> count;  // screenshots (outside the trash) carrying it
};

// The question asked when a rename would take the name of another tag.
struct TagMergeQuestion {
  std::string title;    // "Tag Already Exists"
  std::string message;  // "A tag named 'x' already exists. Merge these tags?"
};

enum class TagRenameOutcome { renamed, merged, cancelled };

class TagCatalogService {
 public:
  using ItemsChanged = std::function<void(const std::vector<UUID>& itemIDs)>;
  using ConfirmMerge = std::function<bool(const TagMergeQuestion&)>;

  explicit TagCatalogService(Clock& clock, ItemsChanged itemsChanged = {});

  // Fails with the validation errors (tag_normalization.h); a colour that is
  // not "#RRGGBB" is InvalidArgument. Without a colour, the name's default.
  Result<std::shared_ptr<library::UserTag>> create(library::ModelContext& context,
                                                   const std::string& name,
                                                   std::optional<std::string> colorHex = {});
  Result<std::shared_ptr<library::UserTag>> ensureExists(
      library::ModelContext& context, const std::string& name,
      std::optional<std::string> colorHexIfCreated = {});

  // NotFound when an id names no item; then nothing changes.
  Status assign(library::ModelContext& context, const std::string& name,
                const std::vector<UUID>& itemIDs);
  Status remove(library::ModelContext& context, const std::string& name,
                const std::vector<UUID>& itemIDs);
  // Removes the tag when every listed item carries it, else adds it to all.
  // True when the tag is now applied.
  Result<bool> toggle(library::ModelContext& context, const std::string& name,
                      std::optional<std::string> colorHexIfCreated,
                      const std::vector<UUID>& itemIDs);

  // Renames a tag on the catalogue and every screenshot. When the new name
  // belongs to another tag, `confirm` is asked; yes merges the two (the other
  // tag survives, each screenshot carries it once), no changes nothing.
  // NotFound when no catalogue entry or screenshot has the old name.
  Result<TagRenameOutcome> rename(library::ModelContext& context, const std::string& oldName,
                                  const std::string& newName,
                                  std::optional<std::string> colorHex,
                                  const ConfirmMerge& confirm);
  // Removes the tag from every screenshot and the catalogue.
  Status deleteTag(library::ModelContext& context, const std::string& name);
  // Screenshots (trash included) carrying the tag.
  Result<int64_t> usageCount(library::ModelContext& context, const std::string& name);
  static std::string deleteConfirmation(int64_t usage);

  // Catalogue entries with use counts, most used first, then by name.
  Result<std::vector<TagSuggestion>> suggestions(library::ModelContext& context);

  // Once per launch: merges catalogue entries that share a normalised name
  // (the oldest survives) and gives every tag name found on screenshots
  // without an entry one, with its default colour.
  Status ensureCatalogSynced(library::ModelContext& context);
  bool didEnsureCatalogThisLaunch() const { return didEnsureCatalogThisLaunch_; }

 private:
  Status commit(library::ModelContext& context, const std::vector<UUID>& changedItems);

  Clock& clock_;
  ItemsChanged itemsChanged_;
  bool didEnsureCatalogThisLaunch_ = false;
};

}  // namespace klipora::intelligence
