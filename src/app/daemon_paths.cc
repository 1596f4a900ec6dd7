#include "app/daemon_paths.h"

#include <nlohmann/json.hpp>

#include "platform/file_system.h"
#include "platform/sha256.h"

namespace klipora::app {

std::string daemonLockPath(const std::string& supportFolder) {
  return joinPath(supportFolder, "daemon.lock");
}

std::string controlSocketPath(const std::string& runtimeDir, const std::string& storePath,
                              const std::string& libraryRoot) {
  if (runtimeDir.empty()) return joinPath(libraryRoot, "klipora-daemon.sock");
  return joinPath(joinPath(runtimeDir, "klipora"), sha256Hex(storePath).substr(0, 16) + ".sock");
}

std::string encodeDaemonHolder(const DaemonHolder& holder) {
  return nlohmann::json{{"pid", holder.pid}, {"socket", holder.socket}}.dump();
}

std::optional<DaemonHolder> decodeDaemonHolder(const std::string& text) {
  auto json = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || !json.contains("pid") || !json["pid"].is_number_integer()) {
    return std::nullopt;
  }
  DaemonHolder holder;
  holder.pid = json["pid"].get<int>();
  if (json.contains("socket") && json["socket"].is_string()) holder.socket = json["socket"];
  return holder;
}

}  // namespace klipora::app
