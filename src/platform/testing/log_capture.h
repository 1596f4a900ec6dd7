// ScopedLogCapture: records every log line written while it lives, for tests
// that assert on the system's log texts.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/log.h"

namespace klipora::testing {

class ScopedLogCapture {
 public:
  ScopedLogCapture();
  ~ScopedLogCapture();
  ScopedLogCapture(const ScopedLogCapture&) = delete;
  ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

  std::vector<std::string> lines() const;
  // True when some line contains `fragment`.
  bool contains(const std::string& fragment) const;
  // Lines that contain `fragment`, in order.
  std::vector<std::string> matching(const std::string& fragment) const;
  void clear();

 private:
  class Sink;
  std::shared_ptr<Sink> sink_;
};

}  // namespace klipora::testing
