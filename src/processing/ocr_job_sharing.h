// BlockingVision: recognitions that block a thread are run through here so
// that identical work is done once. A job started while an identical job (the
// same JobKey: same image content, same kind of recognition) is running joins
// it and receives its result instead of running again. Nothing is cached
// once a job has finished.
//
// Thread rules: safe from any thread; run() blocks until the result exists.
#pragma once

#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>

#include "processing/ocr_result.h"

namespace klipora::processing {

struct JobKey {
  std::string image;  // content identity (a checksum of the bytes or pixels)
  bool fastOnly = false;
  bool characterBoxes = false;
  // Who asks ("auto-redact"); empty for the library's own recognitions.
  std::string job;

  auto operator<=>(const JobKey&) const = default;
};

class BlockingVision {
 public:
  using Job = std::function<OCRResultOrError()>;

  BlockingVision() = default;
  BlockingVision(const BlockingVision&) = delete;
  BlockingVision& operator=(const BlockingVision&) = delete;

  OCRResultOrError run(const JobKey& key, const Job& job);

  int jobsJoined() const;
  int jobsRunning() const;

 private:
  mutable std::mutex mutex_;
  std::map<JobKey, std::shared_future<OCRResultOrError>> running_;
  int joined_ = 0;
};

}  // namespace klipora::processing
