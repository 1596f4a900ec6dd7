// ServiceManager: the user's service manager (a systemd user instance), as
// far as Klipora deals with it: telling it how a daemon it started is doing,
// and switching a user unit on or off for the next log-in. The real one is
// SystemdServiceManager (platform/linux); without a running user instance
// it still links a unit for the next log-in, as the manager itself would.
//
// Thread rules: notify() is safe from any thread; the rest belong to the
// main thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/status.h"

namespace klipora {

struct UnitState {
  bool managerRunning = false;  // a user instance answers for this user
  bool enabled = false;         // linked to start at log-in
  std::string activeState;      // "active", "inactive", "failed"…; empty without a manager
};

class ServiceManager {
 public:
  ServiceManager() = default;
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;
  virtual ~ServiceManager() = default;

  // Sends a state line ("READY=1", "STOPPING=1", "STATUS=…") to the manager
  // that started this process. Does nothing when none asked for it; failures
  // are ignored, since the daemon works the same without them.
  virtual void notify(std::string_view state) = 0;

  // Makes the manager see the unit file `unitPath` and start it at every
  // log-in (WantedBy=default.target). Fails with the manager's own message.
  virtual Status enableUnit(const std::string& unitPath) = 0;
  // Stops the unit if it runs and takes it out of the log-in; ok when it was
  // not enabled. The unit file itself is the caller's.
  virtual Status disableUnit(const std::string& unitPath) = 0;
  virtual UnitState unitState(const std::string& unitPath) = 0;
};

}  // namespace klipora
