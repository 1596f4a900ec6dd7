// ScopedTimeZone: runs a test in the given time zone (TZ) and puts the old
// one back at the end, for tests of local calendars and times.
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace klipora::testing {

class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = std::getenv("TZ");
    hadZone_ = old != nullptr;
    oldZone_ = old ? old : "";
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (hadZone_) {
      setenv("TZ", oldZone_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

 private:
  std::string oldZone_;
  bool hadZone_ = false;
};

}  // namespace klipora::testing
