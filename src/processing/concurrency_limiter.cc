#include "processing/concurrency_limiter.h"

#include <algorithm>

namespace klipora::processing {

void ConcurrencyLimiter::acquire(std::function<void()> granted, bool urgent) {
  {
    std::lock_guard lock(mutex_);
    if (active_ >= maxConcurrent_) {
      auto at = waiters_.end();
      if (urgent) {
        at = std::find_if(waiters_.begin(), waiters_.end(),
                          [](const Waiter& w) { return !w.urgent; });
      }
      waiters_.insert(at, Waiter{std::move(granted), urgent});
      return;
    }
    ++active_;
  }
  granted();
}

void ConcurrencyLimiter::release() {
  std::function<void()> next;
  {
    std::lock_guard lock(mutex_);
    if (waiters_.empty()) {
      if (active_ > 0) --active_;
      return;
    }
    // The first waiter inherits the slot: `active_` stays as it is.
    next = std::move(waiters_.front().granted);
    waiters_.pop_front();
  }
  next();
}

int ConcurrencyLimiter::active() const {
  std::lock_guard lock(mutex_);
  return active_;
}

int ConcurrencyLimiter::waiting() const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(waiters_.size());
}

}  // namespace klipora::processing
