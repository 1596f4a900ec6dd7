// MainLoop: the program's one main event loop: the main Executor and the
// real Timers, run on the thread that calls run(). StopSignals: the requests
// from outside to stop (Ctrl-C, a service manager's stop).
//
// Thread rules: post() and stop() are safe from any thread; timers must be
// scheduled and cancelled on the loop's own thread (or before run()).
// StopSignals report on the main loop.
#pragma once

#include <functional>
#include <string_view>

#include "platform/clock.h"

namespace klipora {

class MainLoop : public Executor, public Timers {
 public:
  // Runs until stop(); may be called again after it returned.
  virtual void run() = 0;
  // Runs queued work until none is left and no timer is pending, then returns.
  virtual void runUntilIdle() = 0;
  virtual void stop() = 0;
};

class StopSignals {
 public:
  StopSignals() = default;
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  virtual ~StopSignals() = default;

  // Calls `received` with the signal's name ("SIGINT", "SIGTERM") for every
  // stop request until cancel().
  virtual void watch(std::function<void(std::string_view name)> received) = 0;
  virtual void cancel() = 0;
};

}  // namespace klipora
