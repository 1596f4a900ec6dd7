#include "processing/ocr_hang_guard.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/log.h"

namespace klipora::processing {
namespace {

// How often a waiter looks at the clock. The clock may be one a test moves
// by hand, so the wait cannot rest on the system's timed wait alone.
constexpr double kClockCheckSeconds = 0.2;

struct Race {
  std::mutex mutex;
  std::condition_variable finished;
  std::optional<Result<std::vector<OcrObservation>>> result;
  std::atomic<bool> left{false};
  // The engine, once the caller has left it to the recognition.
  std::unique_ptr<OcrEngine> orphan;
};

}  // namespace

Result<std::vector<OcrObservation>> raceHangGuard(OCREnginePool::Lease& lease, Clock& clock,
                                                  double deadline, GuardedRecognition recognize) {
  auto race = std::make_shared<Race>();
  // The stuck thread checks that the caller has left before it reads the
  // clock, so it never needs anything but what it owns.
  std::function<bool()> shouldStop = [race, &clock, deadline] {
    return race->left.load() || clock.monotonicSeconds() >= deadline;
  };
  std::thread([race, engine = &lease.engine(), recognize = std::move(recognize),
               shouldStop = std::move(shouldStop)] {
    auto result = recognize(*engine, shouldStop);
    std::unique_ptr<OcrEngine> orphan;
    {
      std::lock_guard lock(race->mutex);
      race->result = std::move(result);
      orphan = std::move(race->orphan);
    }
    race->finished.notify_all();
    if (orphan) log::info("Processing", "ocr an abandoned recognition returned; engine freed");
  }).detach();

  std::unique_lock lock(race->mutex);
  while (!race->result) {
    const double remaining = deadline - clock.monotonicSeconds();
    if (remaining <= 0) {
      race->left = true;
      race->orphan = lease.abandon();
      return Err(Status::Cancelled("the recogniser did not return in time"));
    }
    race->finished.wait_for(lock,
                            std::chrono::duration<double>(std::min(remaining, kClockCheckSeconds)));
  }
  return std::move(*race->result);
}

}  // namespace klipora::processing
