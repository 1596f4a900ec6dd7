// Requests about the language model: its server's endpoint and model name,
// kept in the user defaults, which the classifier reads before each request.
#include "app/control_requests.h"
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

}  // namespace klipora::app
