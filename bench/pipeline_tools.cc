#include "pipeline_tools.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <thread>

extern char** environ;

namespace klipora::bench {
namespace {

struct Running {
  pid_t pid = 0;
  int output = -1;
};

std::vector<std::string> CommandEnvironment() {
  std::vector<std::string> env = {"OMP_THREAD_LIMIT=1"};
  for (char** e = environ; *e; ++e) {
    if (std::strncmp(*e, "OMP_THREAD_LIMIT=", 17) != 0) env.emplace_back(*e);
  }
  return env;
}

// Spawns one command with its standard output on a pipe; pid 0 on failure.
Running Spawn(const std::string& image, std::vector<std::string>& env) {
  Running run;
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::string a0 = "tesseract", a1 = image, a2 = "stdout";
  char* argv[] = {a0.data(), a1.data(), a2.data(), nullptr};
  int rc = posix_spawnp(&run.pid, "tesseract", &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (rc != 0) {
    close(out[0]);
    run.pid = 0;
    return run;
  }
  run.output = out[0];
  return run;
}

}  // namespace

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t mid = values.size() / 2;
  return values.size() % 2 ? values[mid] : (values[mid - 1] + values[mid]) / 2;
}

long StatusKiB(const char* field) {
  std::ifstream status("/proc/self/status");
  const std::string prefix = std::string(field) + ":";
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(prefix, 0) == 0) return std::atol(line.c_str() + prefix.size());
  }
  return 0;
}

CpuSeconds CpuNow() {
  auto seconds = [](int who) {
    struct rusage usage {};
    getrusage(who, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  };
  return {seconds(RUSAGE_SELF), seconds(RUSAGE_CHILDREN)};
}

std::pair<double, double> LoadAverage() {
  std::ifstream in("/proc/loadavg");
  double one = 0, five = 0;
  in >> one >> five;
  return {one, five};
}

bool ResetPeakMemory() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

CommandBatch RunTesseractCommands(const std::vector<std::string>& images, int concurrency) {
  CommandBatch batch;
  std::vector<std::string> env = CommandEnvironment();
  std::atomic<size_t> next{0};
  std::atomic<int> succeeded{0}, failed{0};
  // One thread per command slot: spawn, read the output to its end, reap.
  auto slot = [&] {
    for (size_t i; (i = next++) < images.size();) {
      std::vector<std::string> own = env;
      Running run = Spawn(images[i], own);
      if (run.pid == 0) {
        ++failed;
        continue;
      }
      char buffer[8192];
      while (read(run.output, buffer, sizeof buffer) > 0) {
      }
      close(run.output);
      int status = 0;
      waitpid(run.pid, &status, 0);
      if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        ++succeeded;
      } else {
        ++failed;
      }
    }
  };
  const double start = Now();
  std::vector<std::thread> slots;
  for (int s = 0; s < concurrency; ++s) slots.emplace_back(slot);
  for (auto& t : slots) t.join();
  batch.seconds = Now() - start;
  batch.succeeded = succeeded;
  batch.failed = failed;
  return batch;
}

void TimedLineSink::write(log::Level, log::Channel, std::string_view line) {
  std::fprintf(file_, "%9.3f %.*s\n", Now() - start_, static_cast<int>(line.size()), line.data());
}

}  // namespace klipora::bench
