// TrackedExecutor: forwards work to another executor and counts what has
// not finished yet, so that the owner of the objects that work uses can wait
// for it before destroying them (a service shutting down while a
// recognition still runs on a pool thread).
//
// Thread rules: post() from any thread; waitIdle() from a thread that is not
// one of the target executor's own.
#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/clock.h"

namespace klipora::processing {

class TrackedExecutor final : public Executor {
 public:
  explicit TrackedExecutor(Executor& target) : target_(target) {}
  ~TrackedExecutor() override { waitIdle(); }

  void post(std::function<void()> work) override {
    {
      std::lock_guard lock(mutex_);
      ++pending_;
    }
    target_.post([this, work = std::move(work)] {
      work();
      std::lock_guard lock(mutex_);
      if (--pending_ == 0) idle_.notify_all();
    });
  }

  // Blocks until every posted work item has run.
  void waitIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return pending_ == 0; });
  }

 private:
  Executor& target_;
  std::mutex mutex_;
  std::condition_variable idle_;
  int pending_ = 0;
};

}  // namespace klipora::processing
