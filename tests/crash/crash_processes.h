// The crash trials' child processes: started with their output in files,
// waited for with a SIGKILL at a chosen moment or stopped with SIGTERM, and
// read for sanitizer reports afterwards.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace klipora::crash {

struct Run {
  int status = 0;  // as waitpid gives it
  bool killed = false;
  bool timedOut = false;  // did not end by itself in time
  std::string out, err;
};

struct Child {
  pid_t pid = -1;
  std::string outPath, errPath;
};

Child spawn(const std::vector<std::string>& argv, const std::string& outPath,
            const std::string& errPath);
// Waits for `child`, killing it with SIGKILL after `killAfter` seconds (never
// when negative) and giving up, with a SIGKILL too, after `timeout` seconds.
Run finish(const Child& child, double killAfter, double timeout);
// Sends SIGTERM and waits `grace` seconds for the child to end by itself.
Run stop(const Child& child, double grace);

// "exit N", "signal N" or "hung".
std::string describe(const Run& run);
bool exitedCleanly(const Run& run);
bool sanitizerReport(const std::string& err);
std::string readAll(const std::string& path);
// Makes every file in `folder` look `seconds` older.
void age(const std::string& folder, int seconds);
double secondsSince(double start);
double monotonicNow();

}  // namespace klipora::crash
