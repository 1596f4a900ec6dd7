// Small helpers of the pipeline benchmark: the clock, medians, this
// process's memory and CPU time and the machine's load as /proc reports
// them, the `tesseract` command run over a list of images a few at a time,
// and a log sink that keeps every line with its time.
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "platform/log.h"

namespace klipora::bench {

// Monotonic seconds.
double Now();
// The median of `values` (0 for none).
double Median(std::vector<double> values);
// A line of /proc/self/status in KiB ("VmRSS", "VmHWM"); 0 when absent.
long StatusKiB(const char* field);
// The 1- and 5-minute load averages.
std::pair<double, double> LoadAverage();
// Starts VmHWM again from the current resident size (false where the kernel
// does not allow it).
bool ResetPeakMemory();

// CPU seconds (user + system) used so far by this process and by its
// children that were waited for.
struct CpuSeconds {
  double self = 0;
  double children = 0;
};
CpuSeconds CpuNow();

struct CommandBatch {
  int succeeded = 0;
  int failed = 0;
  double seconds = 0;
};

// `tesseract IMAGE stdout` for every image, `concurrency` commands at a
// time, each with OMP_THREAD_LIMIT=1 and its output read and dropped.
CommandBatch RunTesseractCommands(const std::vector<std::string>& images, int concurrency);

// Writes every log line, with the seconds since `start`, to `file` (which
// it closes).
class TimedLineSink final : public log::LogSink {
 public:
  TimedLineSink(FILE* file, double start) : file_(file), start_(start) {}
  ~TimedLineSink() override { std::fclose(file_); }
  void write(log::Level, log::Channel, std::string_view line) override;

 private:
  FILE* file_;
  double start_;
};

}  // namespace klipora::bench
