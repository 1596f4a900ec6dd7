#include "crash_processes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

namespace klipora::crash {

double monotonicNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

double secondsSince(double start) { return monotonicNow() - start; }

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

Child spawn(const std::vector<std::string>& argv, const std::string& outPath,
            const std::string& errPath) {
  // The child would write out what this process has buffered.
  std::cout.flush();
  std::fflush(nullptr);
  Child child{::fork(), outPath, errPath};
  if (child.pid != 0) return child;
  FILE* out = std::freopen(outPath.c_str(), "w", stdout);
  FILE* err = std::freopen(errPath.c_str(), "w", stderr);
  if (!out || !err) ::_exit(127);
  std::vector<const char*> args;
  for (const auto& a : argv) args.push_back(a.c_str());
  args.push_back(nullptr);
  ::execv(args[0], const_cast<char* const*>(args.data()));
  ::_exit(127);
}

namespace {

// Waits up to `seconds` for the child; true when it ended.
bool Reap(const Child& child, double seconds, Run& run) {
  const double start = monotonicNow();
  while (true) {
    int status = 0;
    if (::waitpid(child.pid, &status, WNOHANG) == child.pid) {
      run.status = status;
      return true;
    }
    if (secondsSince(start) >= seconds) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

void Kill(const Child& child, Run& run) {
  run.killed = true;
  ::kill(child.pid, SIGKILL);
  ::waitpid(child.pid, &run.status, 0);
}

void ReadOutput(const Child& child, Run& run) {
  run.out = readAll(child.outPath);
  run.err = readAll(child.errPath);
}

}  // namespace

Run finish(const Child& child, double killAfter, double timeout) {
  Run run;
  const bool killing = killAfter >= 0 && killAfter < timeout;
  if (!Reap(child, killing ? killAfter : timeout, run)) {
    run.timedOut = !killing;
    Kill(child, run);
  }
  ReadOutput(child, run);
  return run;
}

Run stop(const Child& child, double grace) {
  Run run;
  ::kill(child.pid, SIGTERM);
  if (!Reap(child, grace, run)) {
    run.timedOut = true;
    Kill(child, run);
  }
  ReadOutput(child, run);
  return run;
}

std::string describe(const Run& run) {
  if (run.timedOut) return "hung";
  if (WIFSIGNALED(run.status)) return "signal " + std::to_string(WTERMSIG(run.status));
  return "exit " + std::to_string(WEXITSTATUS(run.status));
}

bool exitedCleanly(const Run& run) {
  return !run.timedOut && WIFEXITED(run.status) && WEXITSTATUS(run.status) == 0;
}

bool sanitizerReport(const std::string& err) {
  return err.find("ERROR: AddressSanitizer") != std::string::npos ||
         err.find("runtime error:") != std::string::npos ||
         err.find("ERROR: LeakSanitizer") != std::string::npos;
}

void age(const std::string& folder, int seconds) {
  std::error_code ignored;
  for (const auto& e : std::filesystem::directory_iterator(folder, ignored)) {
    struct stat st;
    if (::stat(e.path().c_str(), &st) != 0) continue;
    struct timespec times[2] = {{st.st_atime - seconds, 0}, {st.st_mtime - seconds, 0}};
    ::utimensat(AT_FDCWD, e.path().c_str(), times, 0);
  }
}

}  // namespace klipora::crash
