// Clock and Timers: the only way Klipora's logic learns the time or waits.
//
// Real implementations run timers on the main event loop; the manual fakes in
// platform/testing let a test move time by hand, so no test ever sleeps.
// Thread rules: Clock is safe from any thread. Timers are scheduled, cancelled
// and fired on the main thread only.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/date.h"

namespace klipora {

class Clock {
 public:
  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;
  virtual ~Clock() = default;

  // Wall-clock time (may jump when the user changes the clock).
  virtual Date now() const = 0;
  // Monotonic seconds from an arbitrary origin; for measuring durations.
  virtual double monotonicSeconds() const = 0;
};

using TimerId = uint64_t;

class Timers {
 public:
  Timers() = default;
  Timers(const Timers&) = delete;
  Timers& operator=(const Timers&) = delete;
  virtual ~Timers() = default;

  // Runs `fire` once after `delaySeconds` (monotonic time) on the main thread.
  virtual TimerId scheduleOnce(double delaySeconds, std::function<void()> fire) = 0;
  // Runs `fire` every `intervalSeconds`; `toleranceSeconds` lets the loop fire
  // that much late to batch wake-ups. The first firing is one interval away.
  virtual TimerId scheduleRepeating(double intervalSeconds, double toleranceSeconds,
                                    std::function<void()> fire) = 0;
  // Cancels a timer; unknown or already-fired ids are ignored.
  virtual void cancel(TimerId id) = 0;
};

// Runs work on some thread: the main loop, a background pool, or (in tests) a
// queue the test drains by hand. Safe to call from any thread.
class Executor {
 public:
  Executor() = default;
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;
  virtual ~Executor() = default;

  virtual void post(std::function<void()> work) = 0;
};

}  // namespace klipora
