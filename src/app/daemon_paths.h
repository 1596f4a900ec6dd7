// Where a daemon's lock and control socket live. The lock is "daemon.lock" in
// the support folder (beside the store, so one lock per store); its text is
// the JSON {"pid": N, "socket": PATH} once the daemon listens. The socket is
// "<runtime dir>/klipora/<16 hex digits of the store path's SHA-256>.sock",
// or "klipora-daemon.sock" in the library root without a runtime dir. Pure.
#pragma once

#include <optional>
#include <string>

namespace klipora::app {

std::string daemonLockPath(const std::string& supportFolder);
std::string controlSocketPath(const std::string& runtimeDir, const std::string& storePath,
                              const std::string& libraryRoot);

struct DaemonHolder {
  int pid = 0;
  std::string socket;  // empty while the daemon is still starting
};
std::string encodeDaemonHolder(const DaemonHolder& holder);
std::optional<DaemonHolder> decodeDaemonHolder(const std::string& text);

}  // namespace klipora::app
