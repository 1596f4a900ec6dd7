// UserService: Klipora started at log-in for the current user, two ways at
// once: a systemd user unit (Type=notify, restarted on failure, its log in
// the journal) that a user instance of systemd starts, and an XDG autostart
// entry for desktops whose session starts programs without systemd. The
// autostart entry tells systemd's generator to skip it (X-systemd-skip), and
// it runs `klipora run --login`, which steps aside quietly when a daemon
// already drives the library, so the two never start two daemons.
//
// Files: $XDG_CONFIG_HOME (else ~/.config) /systemd/user/klipora.service and
// /autostart/klipora.desktop.
//
// Thread rules: main thread.
#pragma once

#include <string>

#include "platform/file_system.h"
#include "platform/service_manager.h"

namespace klipora::app {

inline constexpr char kServiceUnitName[] = "klipora.service";
inline constexpr char kAutostartEntryName[] = "klipora.desktop";

// The command a unit or entry runs: the klipora binary, and --home when the
// library is not the default one (empty: none).
struct ServiceCommand {
  std::string binary;
  std::string homeOption;
};

std::string serviceUnitText(const ServiceCommand& command);
std::string autostartEntryText(const ServiceCommand& command);

struct UserServicePaths {
  std::string unitPath;
  std::string autostartPath;
};
// Empty paths when neither XDG_CONFIG_HOME nor HOME is set.
UserServicePaths userServicePaths(const char* xdgConfigHome, const char* home);

struct UserServiceStatus {
  bool unitInstalled = false;
  bool autostartInstalled = false;
  UnitState unit;
  // Which way starts Klipora at log-in: "systemd" (a user instance runs and
  // the unit is enabled), "autostart" (the entry is there and no user
  // instance starts the unit), or "none".
  std::string inUse;
};

class UserService {
 public:
  UserService(FileSystem& fs, ServiceManager& manager, UserServicePaths paths);

  // Writes both files (replacing older ones) and enables the unit. A failure
  // of the manager after the files are written is returned; the autostart
  // entry still works then.
  Status enable(const ServiceCommand& command);
  // Disables the unit and removes both files; ok when they were not there.
  Status disable();
  UserServiceStatus status();

 private:
  FileSystem& fs_;
  ServiceManager& manager_;
  UserServicePaths paths_;
};

}  // namespace klipora::app
