// DaemonProcess: a `klipora run` child process for end-to-end tests. Its
// standard output is a pipe, so a test waits for its lines instead of for
// the clock.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace klipora::testing {

class DaemonProcess {
 public:
  DaemonProcess(const std::string& home, const std::string& runtimeDir,
                const std::vector<std::pair<std::string, std::string>>& environment = {}) {
    int out[2];
    EXPECT_EQ(::pipe(out), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], STDOUT_FILENO);
      int err = ::open((home + ".daemon.stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(err, STDERR_FILENO);
      ::setenv("XDG_RUNTIME_DIR", runtimeDir.c_str(), 1);
      // A user of its own, so its first start never watches the real one's
      // screenshot folders.
      const std::string user = home + ".user";
      ::mkdir(user.c_str(), 0700);
      ::setenv("HOME", user.c_str(), 1);
      for (const auto& [name, value] : environment) ::setenv(name.c_str(), value.c_str(), 1);
      ::execl(KLIPORA_BINARY, KLIPORA_BINARY, "--home", home.c_str(), "run", nullptr);
      ::_exit(127);
    }
    ::close(out[1]);
    out_ = out[0];
    errPath_ = home + ".daemon.stderr";
  }
  ~DaemonProcess() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_);
  }

  // Reads standard output until a line containing `text`; false at its end.
  bool waitForOutput(const std::string& text) {
    while (output_.find(text) == std::string::npos) {
      pollfd p{out_, POLLIN, 0};
      if (::poll(&p, 1, 60'000) <= 0) return false;
      char buf[512];
      ssize_t n = ::read(out_, buf, sizeof buf);
      if (n <= 0) return false;
      output_.append(buf, static_cast<size_t>(n));
    }
    return true;
  }
  void signal(int sig) { ::kill(pid_, sig); }
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    waitForOutput("\x01");  // drain the rest
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  const std::string& output() const { return output_; }
  std::string errors() const {
    std::ifstream in(errPath_);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  std::string output_;
  std::string errPath_;
};

}  // namespace klipora::testing
