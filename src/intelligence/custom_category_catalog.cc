#include "intelligence/custom_category_catalog.h"

#include "library/screenshot_item.h"
#include "intelligence/text_words.h"
#include "library/search_text.h"

namespace klipora::intelligence {
void CustomCategoryCatalog::post(const char* name) {
  if (notifications_) notifications_->post(name);
}

Result<std::vector<std::shared_ptr<library::CustomCategory>>> CustomCategoryCatalog::list() {
  library::FetchDescriptor ordered;
  ordered.sortBy = "createdAt ASC";
  return context_.fetch<library::CustomCategory>(ordered);
}

Result<std::shared_ptr<library::CustomCategory>> CustomCategoryCatalog::find(
    const std::string& idOrName) {
  if (auto id = UUID::Parse(idOrName)) {
    ASSIGN_OR_RETURN(auto byID, context_.fetchByKey<library::CustomCategory>(id->uuidString()));
    if (byID) return byID;
  }
  ASSIGN_OR_RETURN(auto all, list());
  const std::string wanted = library::lowercased(trimBlanks(idOrName));
  for (const auto& c : all) {
    if (library::lowercased(c->name) == wanted) return c;
  }
  return Err(Status::NotFound("no category is named or numbered \"" + idOrName + "\""));
}

Status CustomCategoryCatalog::checkName(const std::string& name, const UUID* except) {
  if (trimBlanks(name).empty()) return Status::InvalidArgument("a category needs a name");
  ASSIGN_OR_RETURN(auto all, list());
  const std::string wanted = library::lowercased(trimBlanks(name));
  for (const auto& c : all) {
    if ((!except || c->id != *except) && library::lowercased(c->name) == wanted) {
      return Status::AlreadyExists("a category named \"" + c->name + "\" exists already");
    }
  }
  return Status::Ok();
}

Result<std::shared_ptr<library::CustomCategory>> CustomCategoryCatalog::create(
    const std::string& name, const std::string& description) {
  RETURN_IF_ERROR(checkName(name, nullptr));
  auto category = std::make_shared<library::CustomCategory>();
  category->name = std::string(trimBlanks(name));
  category->createdAt = clock_.now();
  category->categoryDescription = std::string(trimBlanks(description));
  context_.insert(category);
  RETURN_IF_ERROR(context_.save());
  post(notifications::kCustomCategoriesDidChange);
  RETURN_IF_ERROR(keywords_.buildAndEnrich(category->id, *category->categoryDescription, context_));
  post(notifications::kCustomCategoriesDidChange);
  return category;
}

Status CustomCategoryCatalog::rename(const UUID& id, const std::string& name) {
  ASSIGN_OR_RETURN(auto category, find(id.uuidString()));
  RETURN_IF_ERROR(checkName(name, &id));
  category->name = std::string(trimBlanks(name));
  RETURN_IF_ERROR(context_.save());
  post(notifications::kCustomCategoriesDidChange);
  return Status::Ok();
}

Status CustomCategoryCatalog::changeDescription(const UUID& id, const std::string& description) {
  ASSIGN_OR_RETURN(auto category, find(id.uuidString()));
  category->categoryDescription = std::string(trimBlanks(description));
  RETURN_IF_ERROR(context_.save());
  post(notifications::kCustomCategoriesDidChange);
  RETURN_IF_ERROR(keywords_.buildAndEnrich(id, *category->categoryDescription, context_));
  post(notifications::kCustomCategoriesDidChange);
  return Status::Ok();
}

Result<int64_t> CustomCategoryCatalog::remove(const UUID& id) {
  ASSIGN_OR_RETURN(auto category, find(id.uuidString()));
  library::FetchDescriptor filed;
  filed.predicate = "customCategoryID = ?";
  filed.arguments = {library::SqlValue(id.uuidString())};
  ASSIGN_OR_RETURN(auto items, context_.fetch<library::ScreenshotItem>(filed));
  for (const auto& item : items) item->customCategoryID.reset();
  context_.remove(category);
  RETURN_IF_ERROR(context_.save());
  post(notifications::kCustomCategoriesDidChange);
  if (!items.empty()) post(notifications::kUserCategoryDidChange);
  return static_cast<int64_t>(items.size());
}

Result<int64_t> CustomCategoryCatalog::itemCount(const UUID& id) {
  library::FetchDescriptor filed;
  filed.predicate = "customCategoryID = ? AND deleted = 0 AND deletedAt IS NULL";
  filed.arguments = {library::SqlValue(id.uuidString())};
  return context_.fetchCount<library::ScreenshotItem>(filed);
}

}  // namespace klipora::intelligence
