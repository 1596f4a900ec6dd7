// ConcurrencyLimiter: lets at most `maxConcurrent` holders run at once and
// hands a freed slot to the longest waiter (first come, first served).
// acquire() runs `granted` at once when a slot is free, else when one is
// handed over; the holder calls release() exactly once when it is done.
//
// Thread rules: safe from any thread. `granted` runs on the thread that
// acquired (free slot) or on the thread that released (handed over); callers
// that need a particular thread post from there.
#pragma once

#include <deque>
#include <functional>
#include <mutex>

namespace klipora::processing {

class ConcurrencyLimiter {
 public:
  explicit ConcurrencyLimiter(int maxConcurrent) : maxConcurrent_(maxConcurrent) {}
  ConcurrencyLimiter(const ConcurrencyLimiter&) = delete;
  ConcurrencyLimiter& operator=(const ConcurrencyLimiter&) = delete;

  // An `urgent` waiter goes ahead of every waiter that is not urgent.
  void acquire(std::function<void()> granted, bool urgent = false);
  void release();

  int maxConcurrent() const { return maxConcurrent_; }
  int active() const;
  int waiting() const;

 private:
  const int maxConcurrent_;
  mutable std::mutex mutex_;
  int active_ = 0;
  struct Waiter {
    std::function<void()> granted;
    bool urgent;
  };
  std::deque<Waiter> waiters_;
};

}  // namespace klipora::processing
