// OwnedExecutor: forwards work to another executor on behalf of one owner
// whose members that work uses. close(), called from the owner's destructor,
// drops the work that has not started and waits for the work that is
// running, so no work touches the owner once it is gone. The target executor
// may run a dropped item later; it then only skips it.
//
// Thread rules: post() from any thread; close() from a thread that is not
// running work of this executor.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "platform/clock.h"

namespace klipora {

class OwnedExecutor final : public Executor {
 public:
  explicit OwnedExecutor(Executor& target) : target_(target) {}
  ~OwnedExecutor() override { close(); }

  void post(std::function<void()> work) override {
    target_.post([state = state_, work = std::move(work)] {
      {
        std::lock_guard lock(state->mutex);
        if (state->closed) return;
        ++state->running;
      }
      work();
      std::lock_guard lock(state->mutex);
      if (--state->running == 0) state->idle.notify_all();
    });
  }

  void close() {
    std::unique_lock lock(state_->mutex);
    state_->closed = true;
    state_->idle.wait(lock, [this] { return state_->running == 0; });
  }

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable idle;
    bool closed = false;
    int running = 0;
  };

  Executor& target_;
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace klipora
