// Runs programs for benchmarks and reports their own time and peak memory.
//
// Linux starts a new program with the peak memory of the process that
// started it already counted (posix_spawn shares the parent's memory until
// the program is loaded), so a benchmark that has built a large library or
// loaded recognisers would see that figure in every command it runs. The
// programs are therefore started by a small helper process forked before the
// benchmark grows: call ChildRuns::start() first thing in main().
#pragma once

#include <string>
#include <vector>

namespace klipora::bench {

struct ChildRun {
  std::string out;          // standard output, when taken
  double seconds = 0;       // wall time from start to exit
  double cpuSeconds = 0;    // user and system time of the program
  long peakKiB = 0;         // its peak resident memory
  int status = -1;          // exit code; -1 when it did not start or was killed
};

class ChildRuns {
 public:
  // Forks the helper; call before the process allocates much.
  static void start();
  // Runs `argv` (argv[0] looked up on PATH) with `env` added to the
  // environment (replacing variables of the same name), standard error to
  // /dev/null, and standard output taken when `takeOutput`, else dropped.
  static ChildRun run(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                      bool takeOutput);
};

}  // namespace klipora::bench
