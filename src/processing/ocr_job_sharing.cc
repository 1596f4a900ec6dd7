#include "processing/ocr_job_sharing.h"

namespace klipora::processing {

OCRResultOrError BlockingVision::run(const JobKey& key, const Job& job) {
  std::promise<OCRResultOrError> promise;
  {
    std::unique_lock lock(mutex_);
    auto found = running_.find(key);
    if (found != running_.end()) {
      ++joined_;
      std::shared_future<OCRResultOrError> shared = found->second;
      lock.unlock();
      return shared.get();
    }
    running_.emplace(key, promise.get_future().share());
  }
  OCRResultOrError result = tl::unexpected(OCRError::recognizerUnavailable("internal error"));
  try {
    result = job();
  } catch (const std::exception& e) {
    result = tl::unexpected(OCRError::recognizerUnavailable(e.what()));
  }
  {
    std::lock_guard lock(mutex_);
    running_.erase(key);
  }
  promise.set_value(result);
  return result;
}

int BlockingVision::jobsJoined() const {
  std::lock_guard lock(mutex_);
  return joined_;
}

int BlockingVision::jobsRunning() const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(running_.size());
}

}  // namespace klipora::processing
