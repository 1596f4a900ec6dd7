// LogindSessionWatch: the Linux SessionActivityWatch. It listens to logind
// (org.freedesktop.login1) on the system bus for three signs that the user
// is back: a session's LockedHint turning false (what a desktop's lock
// screen sets when it lets the user in), a session's Unlock signal
// (`loginctl unlock-session`), and PrepareForSleep(false) when the machine
// wakes. Sessions of every user count: a daemon started by the user's
// service manager belongs to no session of its own, and a return of someone
// else costs one sweep at most.
//
// A thread of its own runs the GLib main context of its bus connection and
// posts each return to the main loop.
//
// Thread rules: as SessionActivityWatch.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/session_activity_watch.h"

typedef struct _GDBusConnection GDBusConnection;
typedef struct _GMainContext GMainContext;

namespace klipora {

class LogindSessionWatch final : public SessionActivityWatch {
 public:
  // `busAddress` empty: the system bus ($DBUS_SYSTEM_BUS_ADDRESS, else the
  // standard socket).
  explicit LogindSessionWatch(Executor& mainLoop, std::string busAddress = {});
  ~LogindSessionWatch() override;

  // Fails (Unavailable) without a reachable bus, or when logind is not on it.
  Status start(std::function<void(SessionReturn)> returned) override;
  void stop() override;

  struct Listener;  // what the bus thread's callbacks reach

 private:
  Executor& mainLoop_;
  const std::string busAddress_;
  GDBusConnection* connection_ = nullptr;
  GMainContext* context_ = nullptr;
  std::vector<unsigned> subscriptions_;
  std::unique_ptr<Listener> listener_;
  std::shared_ptr<std::atomic<bool>> stopping_;
  std::thread thread_;
};

}  // namespace klipora
