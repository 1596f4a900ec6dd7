// LibraryActions: what the window's selection actions do to the library,
// through the same operations the klipora command uses: marks (favourite,
// archive) and the built-in category override saved on the items; the
// trash (move, restore, delete for good) as requests to the daemon, or on
// the store when none runs; tags through the tag catalogue; user categories
// through the daemon's filing request, so the categories learn from it.
//
// Each action checks every id before it changes anything, so an id that
// names no item changes nothing (NotFound). Store and daemon failures come
// back as errors with the reason to show.
//
// Thread rules: interface thread (the session's main context).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "app/library_session.h"
#include "intelligence/tag_catalog_service.h"
#include "library/screenshot_category.h"

namespace klipora::desktop {

enum class TrashAction { trash, restore, deleteForever };

class LibraryActions {
 public:
  explicit LibraryActions(app::LibrarySession& session);

  Status setFavorite(const std::vector<UUID>& ids, bool favorite);
  Status setArchived(const std::vector<UUID>& ids, bool archived);
  // `category` null: back to the automatic category.
  Status setCategory(const std::vector<UUID>& ids,
                     std::optional<library::ScreenshotCategory> category);
  // Files the items under the user category `categoryID` (null: out of
  // theirs).
  Status fileCustomCategory(const std::vector<UUID>& ids, std::optional<UUID> categoryID);
  // Removes the tag when every item carries it, else adds it to all; true
  // when it is now applied.
  Result<bool> toggleTag(const std::vector<UUID>& ids, const std::string& name);
  // Sends the items back to processing, ahead of other work in the daemon.
  Status retry(const std::vector<UUID>& ids);
  // Fails when any item could not be moved (the others are).
  Status trash(const std::vector<UUID>& ids, TrashAction action);

 private:
  Result<std::vector<std::shared_ptr<library::ScreenshotItem>>> fetchAll(
      const std::vector<UUID>& ids);
  Status saveOrRollBack();
  Result<app::Json> request(app::Json request);

  app::LibrarySession& session_;
  intelligence::TagCatalogService tags_;
  bool tagsSynced_ = false;
};

// The ids as the control requests take them.
app::Json idList(const std::vector<UUID>& ids);

}  // namespace klipora::desktop
