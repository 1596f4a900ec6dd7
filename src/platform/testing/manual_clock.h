// ManualClock: a Clock and Timers whose time moves only when the test calls
// advance(). Due timers fire in time order, each seeing now() at its own due
// time. ManualExecutor queues posted work until the test drains it.
// Single-threaded: use from the test's thread only (ManualExecutor::post may
// be called from any thread).
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include "platform/clock.h"

namespace klipora::testing {

class ManualClock final : public Clock, public Timers {
 public:
  explicit ManualClock(Date start = Date::fromSecondsSince1970(1'700'000'000));

  Date now() const override { return now_; }
  double monotonicSeconds() const override { return monotonic_; }
  TimerId scheduleOnce(double delaySeconds, std::function<void()> fire) override;
  TimerId scheduleRepeating(double intervalSeconds, double toleranceSeconds,
                            std::function<void()> fire) override;
  void cancel(TimerId id) override;

  // Moves time forward by `seconds`, firing every timer that falls due.
  void advance(double seconds);
  // Sets the wall clock without moving monotonic time (the user changed the clock).
  void setNow(Date date) { now_ = date; }
  size_t pendingTimers() const { return timers_.size(); }

 private:
  struct Timer {
    double due;
    double interval;
    std::function<void()> fire;
  };
  Date now_;
  // Read from any thread (a waiter may watch a deadline); moved by the test.
  std::atomic<double> monotonic_ = 1000;
  std::map<TimerId, Timer> timers_;
  TimerId nextId_ = 1;
};

class ManualExecutor final : public Executor {
 public:
  void post(std::function<void()> work) override;
  // Runs queued work, including work queued while running, until none is left.
  // Returns how many tasks ran.
  size_t runAll();
  size_t pending() const;

 private:
  mutable std::mutex mutex_;
  std::deque<std::function<void()>> queue_;
};

// Runs posted work at once on the posting thread.
class InlineExecutor final : public Executor {
 public:
  void post(std::function<void()> work) override { work(); }
};

}  // namespace klipora::testing
