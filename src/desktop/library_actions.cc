#include "desktop/library_actions.h"

#include "library/screenshot_item.h"

namespace klipora::desktop {

LibraryActions::LibraryActions(app::LibrarySession& session)
    : session_(session), tags_(session.platform().clock) {}

app::Json idList(const std::vector<UUID>& ids) {
  app::Json list = app::Json::array();
  for (const auto& id : ids) list.push_back(id.uuidString());
  return list;
}

Result<std::vector<std::shared_ptr<library::ScreenshotItem>>> LibraryActions::fetchAll(
    const std::vector<UUID>& ids) {
  std::vector<std::shared_ptr<library::ScreenshotItem>> items;
  for (const auto& id : ids) {
    ASSIGN_OR_RETURN(auto item,
                     session_.context().fetchByKey<library::ScreenshotItem>(id.uuidString()));
    if (!item) return Err(Status::NotFound("no item with id " + id.uuidString()));
    items.push_back(std::move(item));
  }
  return items;
}

Status LibraryActions::saveOrRollBack() {
  Status s = session_.context().save();
  if (!s.ok()) session_.context().rollback();
  return s;
}

Status LibraryActions::setFavorite(const std::vector<UUID>& ids, bool favorite) {
  ASSIGN_OR_RETURN(auto items, fetchAll(ids));
  for (auto& item : items) item->favorite = favorite;
  return saveOrRollBack();
}

Status LibraryActions::setArchived(const std::vector<UUID>& ids, bool archived) {
  ASSIGN_OR_RETURN(auto items, fetchAll(ids));
  for (auto& item : items) item->archived = archived;
  return saveOrRollBack();
}

Status LibraryActions::setCategory(const std::vector<UUID>& ids,
                                   std::optional<library::ScreenshotCategory> category) {
  ASSIGN_OR_RETURN(auto items, fetchAll(ids));
  for (auto& item : items) item->userCategory = category;
  return saveOrRollBack();
}

Result<app::Json> LibraryActions::request(app::Json request) {
  ASSIGN_OR_RETURN(auto answer, session_.request(request));
  if (!answer.reply.value("ok", false)) {
    // A per-item failure names the item and its cause.
    if (answer.reply.contains("outcomes")) {
      for (const auto& o : answer.reply["outcomes"]) {
        const std::string outcome = o.value("outcome", "");
        if (outcome == "failed" || outcome == "notFound") {
          return Err(Status::IoError(o.value("id", "") + ": " +
                                     o.value("error", outcome == "notFound" ? "no such item"
                                                                            : "failed")));
        }
      }
    }
    return Err(Status::Internal(app::replyError(answer.reply)));
  }
  return answer.reply;
}

Status LibraryActions::fileCustomCategory(const std::vector<UUID>& ids,
                                          std::optional<UUID> categoryID) {
  app::Json r = app::makeRequest("file-category");
  r["category"] = categoryID ? app::Json(categoryID->uuidString()) : app::Json();
  r["ids"] = idList(ids);
  ASSIGN_OR_RETURN(auto reply, request(std::move(r)));
  if (reply.contains("unknown") && reply["unknown"].is_array() && !reply["unknown"].empty()) {
    return Status::NotFound("no item with id " + reply["unknown"][0].get<std::string>());
  }
  return Status::Ok();
}

Result<bool> LibraryActions::toggleTag(const std::vector<UUID>& ids, const std::string& name) {
  if (!tagsSynced_) {
    RETURN_IF_ERROR(tags_.ensureCatalogSynced(session_.context()));
    tagsSynced_ = true;
  }
  return tags_.toggle(session_.context(), name, std::nullopt, ids);
}

Status LibraryActions::retry(const std::vector<UUID>& ids) {
  app::Json r = app::makeRequest("retry");
  r["ids"] = idList(ids);
  auto reply = request(std::move(r));
  return reply ? Status::Ok() : reply.error();
}

Status LibraryActions::trash(const std::vector<UUID>& ids, TrashAction action) {
  const char* command = action == TrashAction::trash     ? "trash"
                        : action == TrashAction::restore ? "restore"
                                                         : "delete";
  app::Json r = app::makeRequest(command);
  r["ids"] = idList(ids);
  auto reply = request(std::move(r));
  return reply ? Status::Ok() : reply.error();
}

}  // namespace klipora::desktop
