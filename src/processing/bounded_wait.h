// BoundedWait: waits for an asynchronous result for at most a given time.
// value() starts `task`, which calls its completion once from any thread.
// `done` runs on the main thread with the value when it came in time, or
// with nothing when the time ran out first; the task is not cancelled, and a
// value that comes later goes to `late` instead (dropped when `late` is
// empty).
//
// Thread rules: value() is called on the main thread; `done` and `late` run
// there (posted through `mainThread`; the timer fires there).
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "platform/clock.h"

namespace klipora::processing {

class BoundedWait {
 public:
  BoundedWait(Timers& timers, Executor& mainThread) : timers_(timers), main_(mainThread) {}

  template <typename T>
  using Completion = std::function<void(T)>;

  template <typename T>
  void value(std::function<void(Completion<T>)> task, double within,
             std::function<void(std::optional<T>)> done, std::function<void(T)> late = {}) {
    // Both ends settle on the main thread, so no lock is needed.
    struct State {
      bool settled = false;
      std::optional<TimerId> timer;
    };
    auto state = std::make_shared<State>();
    Timers& timers = timers_;
    state->timer = timers.scheduleOnce(within, [state, done] {
      if (state->settled) return;
      state->settled = true;
      done(std::nullopt);
    });
    Executor& main = main_;
    task([state, done, late, &timers, &main](T result) {
      main.post([state, done, late, &timers, result = std::move(result)]() mutable {
        const bool inTime = !state->settled;
        state->settled = true;
        if (inTime) {
          if (state->timer) timers.cancel(*state->timer);
          done(std::move(result));
        } else if (late) {
          late(std::move(result));
        }
      });
    });
  }

 private:
  Timers& timers_;
  Executor& main_;
};

}  // namespace klipora::processing
