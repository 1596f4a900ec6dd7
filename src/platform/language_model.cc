#include "platform/language_model.h"

namespace klipora {

ModelEndpoint readModelEndpoint(const UserDefaults& defaults) {
  return {defaults.stringForKey(kModelEndpointKey).value_or(""),
          defaults.stringForKey(kModelNameKey).value_or("")};
}

std::string availabilityText(ModelAvailability availability) {
  switch (availability) {
    case ModelAvailability::available:
      return "available";
    case ModelAvailability::notConfigured:
      return "unavailable(notConfigured)";
    case ModelAvailability::serverUnreachable:
      return "unavailable(serverUnreachable)";
    case ModelAvailability::modelNotReady:
      return "unavailable(modelNotReady)";
    case ModelAvailability::unknownReason:
      break;
  }
  return "unavailable(unknownReason)";
}

}  // namespace klipora
