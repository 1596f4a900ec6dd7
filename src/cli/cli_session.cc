#include "cli/cli_session.h"

#include <iostream>

#include "cli/command_registry.h"

namespace klipora::cli {

bool CliSession::openLibrary() {
  Status s = open();
  if (s.ok()) return true;
  const bool fatal = s.message().starts_with("Could not open");
  std::cerr << (fatal ? "" : "klipora: ") << s.message() << "\n";
  exitCode = s.code() == Status::Code::kUnavailable ? kExitStoreUnavailable : kExitFailure;
  return false;
}

std::optional<std::vector<std::shared_ptr<library::ScreenshotItem>>> fetchItems(
    CliSession& session, const std::vector<std::string>& ids) {
  std::vector<UUID> uuids;
  for (const auto& id : ids) {
    auto uuid = UUID::Parse(id);
    if (!uuid) {
      std::cerr << "klipora: \"" << id << "\" is not an item id\n";
      session.exitCode = kExitUsage;
      return std::nullopt;
    }
    uuids.push_back(*uuid);
  }
  if (!session.openLibrary()) return std::nullopt;
  std::vector<std::shared_ptr<library::ScreenshotItem>> items;
  for (const auto& uuid : uuids) {
    auto item = session.context().fetchByKey<library::ScreenshotItem>(uuid.uuidString());
    if (!item) {
      std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
      session.exitCode = kExitFailure;
      return std::nullopt;
    }
    if (!*item) {
      std::cerr << "klipora: no item with id " << uuid.uuidString() << "; nothing changed\n";
      session.exitCode = kExitFailure;
      return std::nullopt;
    }
    items.push_back(*item);
  }
  return items;
}

void printJson(const nlohmann::ordered_json& json) {
  std::cout << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
}

}  // namespace klipora::cli
