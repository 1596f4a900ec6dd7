// SessionActivityWatch: says when the user comes back to the computer: the
// session was unlocked, or the machine woke from sleep. The files that
// arrived meanwhile may have come without file events (a network folder, a
// folder mounted while asleep), so the library sweeps its watched folders
// then. The Linux watch (LogindSessionWatch) listens to logind on the
// system bus.
//
// Thread rules: start() and stop() on the main thread; `returned` runs on
// the main loop. One return may be reported more than once.
#pragma once

#include <functional>

#include "platform/status.h"

namespace klipora {

enum class SessionReturn { unlocked, resumed };

inline const char* sessionReturnName(SessionReturn r) {
  return r == SessionReturn::unlocked ? "session unlocked" : "woke from sleep";
}

class SessionActivityWatch {
 public:
  SessionActivityWatch() = default;
  SessionActivityWatch(const SessionActivityWatch&) = delete;
  SessionActivityWatch& operator=(const SessionActivityWatch&) = delete;
  virtual ~SessionActivityWatch() = default;

  // Starts watching. Fails (Unavailable) where the system does not tell,
  // such as a machine without a system bus or logind.
  virtual Status start(std::function<void(SessionReturn)> returned) = 0;
  // Stops watching; no `returned` call starts after it returns. Idempotent.
  virtual void stop() = 0;
};

}  // namespace klipora
