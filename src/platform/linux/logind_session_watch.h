// LogindSessionWatch: the Linux SessionActivityWatch. It listens to logind
// (org.freedesktop.login1) on the system bus for three signs that the user
// is back: a session's LockedHint turning false (what a desktop's lock
// screen sets when it lets the user in), a session's Unlock signal
// (`loginctl unlock-session`), and PrepareForSleep(false) when the machine
// wakes.
//
// Only the daemon's own session counts: the one XDG_SESSION_ID names, else
// the one logind places the process in. A daemon started by the user's
// service manager belongs to no session; it follows the user's display
// session, asked of logind at each signal so that a new login is followed.
// Other users' sessions, and this user's other sessions (a text console, a
// remote login), do not bring the user back to this desktop.
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
  // standard socket). `sessionID`: the process's XDG_SESSION_ID, empty when
  // it has none.
  LogindSessionWatch(Executor& mainLoop, std::string busAddress, std::string sessionID);
  ~LogindSessionWatch() override;

  // Fails (Unavailable) without a reachable bus, or when logind is not on it.
  Status start(std::function<void(SessionReturn)> returned) override;
  void stop() override;

  struct Listener;  // what the bus thread's callbacks reach

 private:
  Executor& mainLoop_;
  const std::string busAddress_;
  const std::string sessionID_;
  GDBusConnection* connection_ = nullptr;
  GMainContext* context_ = nullptr;
  std::vector<unsigned> subscriptions_;
  std::unique_ptr<Listener> listener_;
  std::shared_ptr<std::atomic<bool>> stopping_;
  std::thread thread_;
};

}  // namespace klipora
