// The lanes: start and stop, enqueueing, the in-flight set and reruns.
#include "processing/processing_queue.h"

#include "platform/log.h"
#include "processing/processing_queue_internal.h"

namespace klipora::processing {

ProcessingQueue::ProcessingQueue(ProcessingQueueDeps deps, ProcessingQueueConfig config)
    : deps_(deps), config_(config), wait_(deps.timers, deps.mainThread) {}

ProcessingQueue::~ProcessingQueue() {
  *alive_ = false;
  stop();
}

void ProcessingQueue::start() {
  log::info("Processing", "start()");
  running_ = true;
  if (!watchdogTask_) {
    log::info("Watchdog", "starting (interval=%.0fs staleAfter=%.0fs)", config_.watchdogInterval,
              config_.staleAfter);
    watchdogTask_ =
        deps_.timers.scheduleRepeating(config_.watchdogInterval, 1.0, [this] { watchdogTick(); });
  }
  recoverTimeoutFailures();
  if (deps_.notifications && observers_.empty()) {
    for (const char* name :
         {notifications::kCustomCategoriesDidChange, notifications::kUserCategoryDidChange}) {
      observers_.push_back(deps_.notifications->addObserver(name, [this] {
        referenceSetsStale_ = true;
        deps_.customCategories.markStale();
      }));
    }
  }
}

void ProcessingQueue::stop() {
  if (running_) log::info("Processing", "stop()");
  running_ = false;
  if (watchdogTask_) {
    log::info("Watchdog", "stopping");
    deps_.timers.cancel(*watchdogTask_);
    watchdogTask_.reset();
  }
  if (retrySoonTimer_) {
    deps_.timers.cancel(*retrySoonTimer_);
    retrySoonTimer_.reset();
  }
  if (deps_.notifications) {
    for (auto id : observers_) deps_.notifications->removeObserver(id);
  }
  observers_.clear();
}

void ProcessingQueue::enqueue(const UUID& id) { enqueueIn(id, Lane::bulk); }

void ProcessingQueue::enqueuePriority(const UUID& id) { enqueueIn(id, Lane::priority); }

void ProcessingQueue::requeueItems(const std::vector<UUID>& ids) {
  for (const auto& id : ids) enqueue(id);
}

void ProcessingQueue::enqueueIn(const UUID& id, Lane lane) {
  const char* verb = lane == Lane::bulk ? "enqueue" : "enqueuePriority";
  const std::string idText = id.uuidString();
  if (!running_) {
    log::info("Processing", "%s skipped id=%s — not running", verb, idText.c_str());
    return;
  }
  if (!tryAcquireInFlight(id, lane)) {
    log::info("Processing", "%s skipped id=%s — already in-flight", verb, idText.c_str());
    return;
  }
  log::info("Processing", "enqueue id=%s (%s lane)", idText.c_str(),
            lane == Lane::bulk ? "bulk" : "priority");
  ConcurrencyLimiter& limiter = lane == Lane::bulk ? concurrencyLimiter_ : priorityLimiter_;
  int& waiting = lane == Lane::bulk ? waitingBulk_ : waitingPriority_;
  ++waiting;
  limiter.acquire([this, id, lane, &limiter, &waiting, alive = alive_] {
    // Granted at once or by a release; both happen on the main thread, but
    // the run starts from the loop so that a long chain of handovers never
    // nests.
    deps_.mainThread.post([this, id, lane, &limiter, &waiting, alive] {
      if (!*alive) return;
      --waiting;
      processItemCoreWithTimeout(id, lane == Lane::priority, [this, id, &limiter] {
        limiter.release();
        releaseInFlight(id);
      });
    });
  });
}

bool ProcessingQueue::tryAcquireInFlight(const UUID& id, Lane lane) {
  std::lock_guard lock(inFlightLock_);
  if (inFlightIDs_.count(id)) {
    // Asked again while queued or running: one more run afterwards, in the
    // more urgent of the two lanes.
    auto [it, inserted] = rerunIDs_.emplace(id, lane);
    if (!inserted && lane == Lane::priority) it->second = lane;
    return false;
  }
  inFlightIDs_.insert(id);
  return true;
}

void ProcessingQueue::releaseInFlight(const UUID& id) {
  std::optional<Lane> rerun;
  {
    std::lock_guard lock(inFlightLock_);
    inFlightIDs_.erase(id);
    if (auto it = rerunIDs_.find(id); it != rerunIDs_.end()) {
      rerun = it->second;
      rerunIDs_.erase(it);
    }
  }
  {
    std::lock_guard lock(cancelledLock_);
    if (cancelledItemIDs_.erase(id)) rerun.reset();
  }
  if (rerun) enqueueIn(id, *rerun);
}

void ProcessingQueue::supersede(const UUID& id) {
  std::lock_guard lock(latestLock_);
  if (auto it = latestRun_.find(id); it != latestRun_.end()) it->second = nextToken_++;
}

void ProcessingQueue::cancel(const UUID& id) {
  {
    std::lock_guard lock(inFlightLock_);
    rerunIDs_.erase(id);
    if (!inFlightIDs_.count(id)) return;
  }
  std::lock_guard lock(cancelledLock_);
  cancelledItemIDs_.insert(id);
}

bool ProcessingQueue::isCancelled(const UUID& id) const {
  std::lock_guard lock(cancelledLock_);
  return cancelledItemIDs_.count(id) > 0;
}

std::vector<UUID> ProcessingQueue::inFlightIDs() const {
  std::lock_guard lock(inFlightLock_);
  return {inFlightIDs_.begin(), inFlightIDs_.end()};
}

ProcessingQueueStatus ProcessingQueue::status() const {
  ProcessingQueueStatus s;
  s.running = running_;
  s.bulkWaiting = waitingBulk_;
  s.priorityWaiting = waitingPriority_;
  s.bulkRunning = concurrencyLimiter_.active();
  s.priorityRunning = priorityLimiter_.active();
  {
    std::lock_guard lock(inFlightLock_);
    s.inFlight = static_cast<int>(inFlightIDs_.size());
  }
  {
    std::lock_guard lock(lateLock_);
    s.lateOCRPending = static_cast<int>(lateOCRPending_.size());
  }
  {
    std::lock_guard lock(retryLock_);
    s.retryPassRunning = retryPass_.running;
  }
  return s;
}

}  // namespace klipora::processing
