#include "app/daemon.h"

#include "app/daemon_paths.h"
#include "platform/log.h"

namespace klipora::app {

Daemon::Daemon(AppEnvironment env, library::ModelContext& context, ControlChannelServer& server,
               DaemonOptions options, AppServiceFactories factories)
    : env_(env),
      context_(context),
      server_(server),
      options_(std::move(options)),
      coordinator_(env, &context, std::move(factories)) {}

Daemon::~Daemon() {
  if (pollTimer_) env_.timers.cancel(*pollTimer_);
  if (graceTimer_) env_.timers.cancel(*graceTimer_);
}

Status Daemon::start() {
  coordinator_.start();
  handler_ = std::make_unique<ControlRequestHandler>(RequestTarget{
      .context = context_,
      .markupEdits = env_.markupEdits,
      .clock = env_.clock,
      .timers = env_.timers,
      .userDefaults = env_.userDefaults,
      .coordinator = &coordinator_,
      .storage = nullptr,
      .storePath = options_.storePath,
      .libraryRoot = coordinator_.libraryRoot(),
      .fallbackNotice = coordinator_.fallbackNotice(),
      .daemonPid = options_.pid,
  });

  address_ = controlSocketPath(options_.runtimeDir, options_.storePath, coordinator_.libraryRoot());
  Status listening = server_.listen(address_, [this](const std::string& line, auto reply) {
    handler_->handleLine(line, std::move(reply));
  });
  if (!listening.ok()) {
    coordinator_.stop();
    return listening.WithContext("control channel");
  }
  log::info("Boot", "control channel listening at %s", address_.c_str());
  // The first call only takes the store's current version as the baseline.
  (void)context_.hasExternalChanges();
  pollTimer_ = env_.timers.scheduleRepeating(kStoreChangePollInterval, 0.5,
                                             [this] { pollStoreChanges(); });
  return Status::Ok();
}

void Daemon::pollStoreChanges() {
  auto changed = context_.hasExternalChanges();
  if (!changed) {
    log::warning("Library", "cannot check the store for changes: %s",
                 changed.error().message().c_str());
    return;
  }
  if (*changed) coordinator_.handleExternalStoreChanges();
}

void Daemon::finish(Status saved) {
  if (!stopped_) return;
  auto done = std::move(stopped_);
  stopped_ = nullptr;
  if (graceTimer_) env_.timers.cancel(*graceTimer_);
  graceTimer_.reset();
  coordinator_.stop();
  server_.close();
  done(saved);
}

void Daemon::requestStop(std::function<void(Status saved)> stopped, double grace) {
  if (stopping_) {
    // A second request (or the grace timer) does not wait any longer.
    log::warning("Boot", "stopping now; %d import(s) still in flight",
                 coordinator_.importsInFlight());
    auto* saver = coordinator_.saveCoalescer();
    finish(saver ? saver->flush() : Status::Ok());
    return;
  }
  stopping_ = true;
  stopped_ = std::move(stopped);
  log::info("Boot", "stopping: finishing imports in flight, then saving");
  if (pollTimer_) env_.timers.cancel(*pollTimer_);
  pollTimer_.reset();
  graceTimer_ = env_.timers.scheduleOnce(grace, [this] {
    graceTimer_.reset();
    requestStop(nullptr);
  });
  coordinator_.shutDown([this](Status saved) { finish(saved); });
}

}  // namespace klipora::app
