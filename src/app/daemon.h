// Daemon: a running library as `klipora run` keeps it: the coordinator, the
// control channel that other klipora processes talk to, and the watch for
// changes that other processes save to the store.
//
// The caller holds the daemon lock (daemon_paths.h) and has opened the
// store; start() starts the coordinator and listens; requestStop() refuses
// new work, lets imports in flight finish (for at most kShutdownGrace
// seconds), flushes the save coalescer, stops the coordinator and closes
// the channel, then calls `stopped`.
//
// Thread rules: main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/app_coordinator.h"
#include "app/control_requests.h"
#include "platform/control_channel.h"

namespace klipora::app {

struct DaemonOptions {
  std::string storePath;
  int pid = 0;
  // Where the control socket goes: $XDG_RUNTIME_DIR when set, else "".
  std::string runtimeDir;
};

class Daemon {
 public:
  static constexpr double kStoreChangePollInterval = 1.0;
  static constexpr double kShutdownGrace = 30.0;
  // A service manager's stop (SIGTERM) waits this long, so that the daemon is
  // gone well within the 5 s a user session gives it at log-out.
  static constexpr double kTerminateGrace = 3.0;

  Daemon(AppEnvironment env, library::ModelContext& context, ControlChannelServer& server,
         DaemonOptions options, AppServiceFactories factories = {});
  ~Daemon();

  // Starts the coordinator and the control channel. Fails when the channel
  // cannot listen (the coordinator is stopped again then).
  Status start();
  // The address the channel listens at, once started.
  const std::string& controlAddress() const { return address_; }
  // Imports still in flight after `grace` seconds are not waited for, as on a
  // second request.
  void requestStop(std::function<void(Status saved)> stopped, double grace = kShutdownGrace);

  AppCoordinator& coordinator() { return coordinator_; }

 private:
  void pollStoreChanges();
  void finish(Status saved);

  AppEnvironment env_;
  library::ModelContext& context_;
  ControlChannelServer& server_;
  DaemonOptions options_;
  AppCoordinator coordinator_;
  std::unique_ptr<ControlRequestHandler> handler_;
  std::string address_;
  std::optional<TimerId> pollTimer_;
  std::optional<TimerId> graceTimer_;
  bool stopping_ = false;
  std::function<void(Status)> stopped_;
};

}  // namespace klipora::app
