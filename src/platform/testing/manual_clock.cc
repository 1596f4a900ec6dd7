#include "platform/testing/manual_clock.h"

namespace klipora::testing {

ManualClock::ManualClock(Date start) : now_(start) {}

TimerId ManualClock::scheduleOnce(double delaySeconds, std::function<void()> fire) {
  TimerId id = nextId_++;
  timers_[id] = Timer{monotonic_ + (delaySeconds < 0 ? 0 : delaySeconds), 0, std::move(fire)};
  return id;
}

TimerId ManualClock::scheduleRepeating(double intervalSeconds, double /*toleranceSeconds*/,
                                       std::function<void()> fire) {
  TimerId id = nextId_++;
  timers_[id] = Timer{monotonic_ + intervalSeconds, intervalSeconds, std::move(fire)};
  return id;
}

void ManualClock::cancel(TimerId id) { timers_.erase(id); }

void ManualClock::advance(double seconds) {
  const double target = monotonic_ + seconds;
  while (true) {
    auto next = timers_.end();
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
      if (it->second.due <= target && (next == timers_.end() || it->second.due < next->second.due)) {
        next = it;
      }
    }
    if (next == timers_.end()) break;
    now_ = now_.addingTimeInterval(next->second.due - monotonic_);
    monotonic_ = next->second.due;
    std::function<void()> fire = next->second.fire;
    if (next->second.interval > 0) {
      next->second.due += next->second.interval;
    } else {
      timers_.erase(next);
    }
    fire();
  }
  now_ = now_.addingTimeInterval(target - monotonic_);
  monotonic_ = target;
}

void ManualExecutor::post(std::function<void()> work) {
  std::lock_guard lock(mutex_);
  queue_.push_back(std::move(work));
}

size_t ManualExecutor::runAll() {
  size_t ran = 0;
  while (true) {
    std::function<void()> work;
    {
      std::lock_guard lock(mutex_);
      if (queue_.empty()) return ran;
      work = std::move(queue_.front());
      queue_.pop_front();
    }
    work();
    ++ran;
  }
}

size_t ManualExecutor::pending() const {
  std::lock_guard lock(mutex_);
  return queue_.size();
}

}  // namespace klipora::testing
