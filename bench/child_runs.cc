#include "child_runs.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace klipora::bench {
namespace {

int toHelper = -1;
int fromHelper = -1;

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void WriteAll(int fd, const void* data, size_t size) {
  auto* p = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = write(fd, p, size);
    if (n <= 0) std::_Exit(1);
    p += n;
    size -= static_cast<size_t>(n);
  }
}

bool ReadAll(int fd, void* data, size_t size) {
  auto* p = static_cast<char*>(data);
  while (size > 0) {
    ssize_t n = read(fd, p, size);
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

void WriteString(int fd, const std::string& s) {
  uint64_t size = s.size();
  WriteAll(fd, &size, sizeof size);
  WriteAll(fd, s.data(), s.size());
}

bool ReadString(int fd, std::string& s) {
  uint64_t size = 0;
  if (!ReadAll(fd, &size, sizeof size)) return false;
  s.resize(size);
  return ReadAll(fd, s.data(), size);
}

void WriteStrings(int fd, const std::vector<std::string>& list) {
  uint64_t count = list.size();
  WriteAll(fd, &count, sizeof count);
  for (const auto& s : list) WriteString(fd, s);
}

bool ReadStrings(int fd, std::vector<std::string>& list) {
  uint64_t count = 0;
  if (!ReadAll(fd, &count, sizeof count)) return false;
  list.resize(count);
  for (auto& s : list) {
    if (!ReadString(fd, s)) return false;
  }
  return true;
}

// In the helper: one program, start to exit.
ChildRun Spawn(std::vector<std::string> argv, std::vector<std::string> env, bool takeOutput) {
  ChildRun run;
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::string name = entry.substr(0, entry.find('=') + 1);
    bool replaced = false;
    for (const auto& given : env) replaced = replaced || given.rfind(name, 0) == 0;
    if (!replaced) env.push_back(entry);
  }
  std::vector<char*> envp, args;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  for (auto& a : argv) args.push_back(a.data());
  args.push_back(nullptr);
  int out[2] = {-1, -1};
  if (takeOutput && pipe(out) != 0) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (takeOutput) {
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  double start = Now();
  pid_t pid = 0;
  int rc = posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (takeOutput) close(out[1]);
  if (rc != 0) {
    if (takeOutput) close(out[0]);
    return run;
  }
  if (takeOutput) {
    char buffer[8192];
    ssize_t n;
    while ((n = read(out[0], buffer, sizeof buffer)) > 0) run.out.append(buffer, n);
    close(out[0]);
  }
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  run.seconds = Now() - start;
  auto seconds = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
  run.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  run.peakKiB = usage.ru_maxrss;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

[[noreturn]] void Serve(int in, int out) {
  while (true) {
    std::vector<std::string> argv, env;
    uint8_t takeOutput = 0;
    if (!ReadStrings(in, argv) || !ReadStrings(in, env) || !ReadAll(in, &takeOutput, 1)) {
      std::_Exit(0);
    }
    ChildRun run = Spawn(std::move(argv), std::move(env), takeOutput != 0);
    WriteAll(out, &run.seconds, sizeof run.seconds);
    WriteAll(out, &run.cpuSeconds, sizeof run.cpuSeconds);
    WriteAll(out, &run.peakKiB, sizeof run.peakKiB);
    WriteAll(out, &run.status, sizeof run.status);
    WriteString(out, run.out);
  }
}

}  // namespace

void ChildRuns::start() {
  if (toHelper >= 0) return;
  int requests[2], replies[2];
  if (pipe(requests) != 0 || pipe(replies) != 0) {
    std::perror("bench: pipe");
    std::exit(1);
  }
  pid_t pid = fork();
  if (pid < 0) {
    std::perror("bench: fork");
    std::exit(1);
  }
  if (pid == 0) {
    close(requests[1]);
    close(replies[0]);
    fcntl(requests[0], F_SETFD, FD_CLOEXEC);
    fcntl(replies[1], F_SETFD, FD_CLOEXEC);
    Serve(requests[0], replies[1]);
  }
  close(requests[0]);
  close(replies[1]);
  toHelper = requests[1];
  fromHelper = replies[0];
  // The helper ends when it reads the end of its requests, at exit.
  fcntl(toHelper, F_SETFD, FD_CLOEXEC);
  fcntl(fromHelper, F_SETFD, FD_CLOEXEC);
}

ChildRun ChildRuns::run(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                        bool takeOutput) {
  if (toHelper < 0) {
    std::fprintf(stderr, "bench: ChildRuns::start() was not called\n");
    std::exit(1);
  }
  WriteStrings(toHelper, argv);
  WriteStrings(toHelper, env);
  uint8_t take = takeOutput ? 1 : 0;
  WriteAll(toHelper, &take, 1);
  ChildRun run;
  if (!ReadAll(fromHelper, &run.seconds, sizeof run.seconds) ||
      !ReadAll(fromHelper, &run.cpuSeconds, sizeof run.cpuSeconds) ||
      !ReadAll(fromHelper, &run.peakKiB, sizeof run.peakKiB) ||
      !ReadAll(fromHelper, &run.status, sizeof run.status) || !ReadString(fromHelper, run.out)) {
    std::fprintf(stderr, "bench: the helper that starts programs has gone\n");
    std::exit(1);
  }
  return run;
}

}  // namespace klipora::bench
