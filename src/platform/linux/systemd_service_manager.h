// SystemdServiceManager: the ServiceManager of a systemd user instance.
// notify() writes the state datagram to $NOTIFY_SOCKET itself (the protocol
// is one line of text to a Unix datagram socket, so libsystemd is not
// needed for it). Units are switched with `systemctl --user` while a user
// instance runs ($XDG_RUNTIME_DIR/systemd/private exists); otherwise the
// link in default.target.wants beside the unit is made or removed directly,
// which is what `systemctl --user enable` would write, so the unit starts at
// the next log-in.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/service_manager.h"

namespace klipora {

class SystemdServiceManager final : public ServiceManager {
 public:
  // `getenv` reads the environment (NOTIFY_SOCKET, XDG_RUNTIME_DIR).
  explicit SystemdServiceManager(std::function<const char*(const char*)> getenv);

  void notify(std::string_view state) override;
  Status enableUnit(const std::string& unitPath) override;
  Status disableUnit(const std::string& unitPath) override;
  UnitState unitState(const std::string& unitPath) override;

 private:
  bool managerRunning() const;
  struct Outcome {
    int exitCode = -1;
    std::string output;  // standard output and error together
  };
  // Runs `systemctl --user ARGS…` and waits for it.
  Result<Outcome> systemctl(const std::vector<std::string>& args) const;

  std::function<const char*(const char*)> getenv_;
};

}  // namespace klipora
