// AsioMainLoop: the program's one main event loop (an Asio io_context run on
// the thread that calls run()). It is the main Executor and the real Timers.
// SystemClock reads the real clocks. ThreadPoolExecutor runs background work.
//
// Thread rules: post() and stop() are safe from any thread; timers must be
// scheduled and cancelled from the loop's own thread (or before run()).
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>
#include <map>
#include <memory>

#include "platform/clock.h"
#include "platform/main_loop.h"

namespace klipora {

class SystemClock final : public Clock {
 public:
  Date now() const override;
  double monotonicSeconds() const override;
};

class AsioMainLoop final : public MainLoop {
 public:
  AsioMainLoop();
  ~AsioMainLoop() override;

  void post(std::function<void()> work) override;
  TimerId scheduleOnce(double delaySeconds, std::function<void()> fire) override;
  TimerId scheduleRepeating(double intervalSeconds, double toleranceSeconds,
                            std::function<void()> fire) override;
  void cancel(TimerId id) override;

  // Runs until stop(); may be called again after it returned.
  void run() override;
  // Runs queued work until none is left and no timer is pending, then returns.
  void runUntilIdle() override;
  void stop() override;
  asio::io_context& context() { return context_; }

 private:
  struct Timer;
  void arm(TimerId id, double delaySeconds);

  asio::io_context context_;
  std::map<TimerId, std::shared_ptr<Timer>> timers_;
  TimerId nextTimer_ = 1;
};

class ThreadPoolExecutor final : public Executor {
 public:
  explicit ThreadPoolExecutor(size_t threads);
  ~ThreadPoolExecutor() override;  // waits for queued work
  void post(std::function<void()> work) override;

 private:
  asio::thread_pool pool_;
};

}  // namespace klipora
