// ProgressLine: "Exporting 12/40" rewritten in place on standard error while
// long work runs, when standard error is a terminal; nothing on a pipe, so
// scripts and logs see only the result.
#pragma once

#include <unistd.h>

#include <iostream>
#include <string>

namespace klipora::cli {

class ProgressLine {
 public:
  explicit ProgressLine(std::string verb)
      : verb_(std::move(verb)), shown_(::isatty(STDERR_FILENO)) {}
  ~ProgressLine() {
    if (shown_ && drawn_) std::cerr << "\r\033[K" << std::flush;
  }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void operator()(size_t done, size_t total) {
    if (!shown_) return;
    std::cerr << "\r" << verb_ << " " << done << "/" << total << std::flush;
    drawn_ = true;
  }

 private:
  std::string verb_;
  bool shown_;
  bool drawn_ = false;
};

}  // namespace klipora::cli
