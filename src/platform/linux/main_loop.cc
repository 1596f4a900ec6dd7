#include "platform/linux/main_loop.h"

#include <asio/post.hpp>
#include <chrono>

namespace klipora {

Date SystemClock::now() const {
  auto since = std::chrono::system_clock::now().time_since_epoch();
  return Date::fromSecondsSince1970(std::chrono::duration<double>(since).count());
}

double SystemClock::monotonicSeconds() const {
  auto since = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(since).count();
}

struct AsioMainLoop::Timer {
  Timer(asio::io_context& context, std::function<void()> f, double interval)
      : timer(context), fire(std::move(f)), intervalSeconds(interval) {}
  asio::steady_timer timer;
  std::function<void()> fire;
  double intervalSeconds;  // 0 for a one-shot timer
};

AsioMainLoop::AsioMainLoop() = default;

AsioMainLoop::~AsioMainLoop() {
  for (auto& [id, timer] : timers_) timer->timer.cancel();
  timers_.clear();
}

void AsioMainLoop::post(std::function<void()> work) { asio::post(context_, std::move(work)); }

TimerId AsioMainLoop::scheduleOnce(double delaySeconds, std::function<void()> fire) {
  TimerId id = nextTimer_++;
  timers_[id] = std::make_shared<Timer>(context_, std::move(fire), 0.0);
  arm(id, delaySeconds);
  return id;
}

TimerId AsioMainLoop::scheduleRepeating(double intervalSeconds, double /*toleranceSeconds*/,
                                        std::function<void()> fire) {
  TimerId id = nextTimer_++;
  timers_[id] = std::make_shared<Timer>(context_, std::move(fire), intervalSeconds);
  arm(id, intervalSeconds);
  return id;
}

void AsioMainLoop::arm(TimerId id, double delaySeconds) {
  auto timer = timers_.at(id);
  timer->timer.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(delaySeconds < 0 ? 0 : delaySeconds)));
  timer->timer.async_wait([this, id, weak = std::weak_ptr<Timer>(timer)](const asio::error_code& ec) {
    auto timer = weak.lock();
    if (ec || !timer) return;  // cancelled
    if (timer->intervalSeconds > 0) {
      arm(id, timer->intervalSeconds);
    } else {
      timers_.erase(id);
    }
    timer->fire();
  });
}

void AsioMainLoop::cancel(TimerId id) {
  auto it = timers_.find(id);
  if (it == timers_.end()) return;
  it->second->timer.cancel();
  timers_.erase(it);
}

void AsioMainLoop::run() {
  context_.restart();  // a loop stopped before may run again
  auto guard = asio::make_work_guard(context_);
  context_.run();
}

void AsioMainLoop::runUntilIdle() {
  context_.restart();
  context_.run();
}

void AsioMainLoop::stop() { context_.stop(); }

ThreadPoolExecutor::ThreadPoolExecutor(size_t threads) : pool_(threads) {}

ThreadPoolExecutor::~ThreadPoolExecutor() { pool_.join(); }

void ThreadPoolExecutor::post(std::function<void()> work) { asio::post(pool_, std::move(work)); }

}  // namespace klipora
