// Requests about the language model (its server's endpoint and model name,
// kept in the user defaults, which the classifier reads before each
// request) and the user's categories it learns.
#include "app/control_requests.h"
#include "library/records.h"
#include "platform/http_url.h"
#include "platform/language_model.h"

namespace klipora::app {

Json ControlRequestHandler::model(const Json& request) {
  auto& defaults = target_.userDefaults;
  const Json endpoint = request.value("endpoint", Json());
  const Json name = request.value("model", Json());
  if (endpoint.is_null()) {
    Status removed = defaults.removeObject(kModelEndpointKey);
    if (removed.ok()) removed = defaults.removeObject(kModelNameKey);
    if (!removed.ok()) return errorReply("cannot save the model setting: " + removed.message());
    return {{"ok", true}, {"endpoint", nullptr}, {"model", nullptr}};
  }
  if (!endpoint.is_string() || !(name.is_null() || name.is_string())) {
    return errorReply("model needs \"endpoint\" (a URL or null) and an optional \"model\" name");
  }
  auto url = parseHttpUrl(endpoint.get<std::string>());
  if (!url) return errorReply(url.error().message());
  Status written = defaults.setString(kModelEndpointKey, endpoint.get<std::string>());
  if (written.ok()) {
    written = name.is_string() && !name.get<std::string>().empty()
                  ? defaults.setString(kModelNameKey, name.get<std::string>())
                  : defaults.removeObject(kModelNameKey);
  }
  if (!written.ok()) return errorReply("cannot save the model setting: " + written.message());
  return {{"ok", true}, {"endpoint", endpoint}, {"model", name.is_string() ? name : Json()}};
}

CustomCategoryService* ControlRequestHandler::customCategories() {
  if (target_.coordinator && target_.coordinator->processingQueue()) {
    return target_.coordinator->processingQueue()->customCategories();
  }
  return target_.customCategories;
}

Json ControlRequestHandler::sortCategory(const std::string& command, const Json& request) {
  CustomCategoryService* service = customCategories();
  if (!service) return errorReply("this library has no processing to sort the categories");
  const Json category = request.value("category", Json());
  auto id = category.is_string() ? UUID::Parse(category.get<std::string>()) : std::nullopt;
  if (!id) return errorReply(command + " needs \"category\", a category id");
  auto& sorter = service->sorter();
  if (command == "apply-category") {
    auto found = target_.context.fetchByKey<library::CustomCategory>(id->uuidString());
    if (!found) return errorReply("cannot read the categories: " + found.error().message());
    if (!*found) return errorReply("no category has the id " + id->uuidString());
    service->startSorting(*id);
    return {{"ok", true}, {"category", id->uuidString()}, {"started", true}};
  }
  const auto state = sorter.state();
  Json reply = {{"ok", true},
                {"category", id->uuidString()},
                {"running", sorter.isSorting(*id)},
                {"examined", 0},
                {"total", 0},
                {"assigned", 0},
                {"result", nullptr}};
  if (state.categoryID == *id) {
    reply["examined"] = state.latest.examined;
    reply["total"] = state.latest.total;
    reply["assigned"] = state.latest.assigned;
  }
  if (state.lastResult && state.lastResult->categoryID == *id) {
    reply["result"] = {{"assigned", state.lastResult->assigned},
                       {"cancelled", state.lastResult->cancelled}};
  }
  return reply;
}

Json ControlRequestHandler::fileCategory(const Json& request) {
  CustomCategoryService* service = customCategories();
  if (!service) return errorReply("this library has no processing to learn the categories");
  const Json category = request.value("category", Json());
  std::optional<UUID> categoryID;
  if (category.is_string()) {
    categoryID = UUID::Parse(category.get<std::string>());
    if (!categoryID) return errorReply("\"" + category.get<std::string>() + "\" is not a category id");
    auto found = target_.context.fetchByKey<library::CustomCategory>(categoryID->uuidString());
    if (!found) return errorReply("cannot read the categories: " + found.error().message());
    if (!*found) return errorReply("no category has the id " + categoryID->uuidString());
  } else if (!category.is_null()) {
    return errorReply("file-category needs \"category\" (an id or null)");
  }
  if (!request.contains("ids") || !request["ids"].is_array()) {
    return errorReply("file-category needs an \"ids\" list");
  }
  std::vector<std::string> ids;
  for (const auto& id : request["ids"]) {
    if (!id.is_string()) return errorReply("every id must be a string");
    ids.push_back(id.get<std::string>());
  }
  auto report = service->file(categoryID, ids);
  if (!report) return errorReply("cannot save the filing: " + report.error().message());
  Json moved = Json::array();
  for (const auto& id : report->moved) moved.push_back(id.uuidString());
  return {{"ok", true},
          {"category", categoryID ? Json(categoryID->uuidString()) : Json(nullptr)},
          {"moved", std::move(moved)},
          {"unknown", report->unknown}};
}

}  // namespace klipora::app
