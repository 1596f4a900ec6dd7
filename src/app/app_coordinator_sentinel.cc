// Recovery of an interrupted library move. The move writes a sentinel file
// into the support folder before it starts ("inProgress") and marks it
// "completed" at the end; it also leaves the destination and the previous
// root in the user defaults until the new root is registered. A start that
// finds either tells the log; a completed sentinel and a registry whose
// destination is gone are cleared.
#include <nlohmann/json.hpp>

#include "app/app_coordinator.h"
#include "platform/log.h"

namespace klipora::app {

namespace {
constexpr char kSentinelName[] = "LibraryMove.json";
constexpr char kPendingRegistryKey[] = "LibraryRelocation.pendingRegistry.v1";
}  // namespace

void AppCoordinator::scanForLeftoverMigrationSentinel() {
  std::string sentinel = joinPath(env_.supportFolder, kSentinelName);
  if (auto text = env_.fileSystem.readFile(sentinel)) {
    auto json = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
    std::string state = json.is_object() ? json.value("state", "") : "";
    std::string previous = json.is_object() ? json.value("previous", "") : "";
    if (state == "completed") {
      log::info("Recovery", "found completed sentinel at %s; removing", sentinel.c_str());
      (void)env_.fileSystem.removeFile(sentinel);
    } else {
      // Left in place: only the move itself may finish or undo it.
      log::info("Recovery", "found in-progress sentinel at %s (previous=%s)", sentinel.c_str(),
                previous.c_str());
    }
  }
  auto registry = env_.userDefaults.stringListForKey(kPendingRegistryKey);
  if (registry.size() != 2) return;
  if (env_.fileSystem.isWritableDirectory(registry[0])) {
    log::info("Recovery", "pending registry: dest=%s prev=%s", registry[0].c_str(),
              registry[1].c_str());
  } else {
    log::info("Recovery", "pending registry stale; clearing");
    (void)env_.userDefaults.removeObject(kPendingRegistryKey);
  }
}

}  // namespace klipora::app
