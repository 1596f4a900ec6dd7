// VirtualScreen: an X server of its own (Xvfb) for a test, gone with it.
// Xvfb picks a free display itself and writes its number once it accepts
// clients. It keeps running when its last client leaves (-noreset): a server
// that resets then refuses the connections that come while it does so.
// Header-only test support.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

namespace klipora::testing {

class VirtualScreen {
 public:
  VirtualScreen() {
    int ready[2];
    if (::pipe(ready) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(ready[0]);
      const std::string fd = std::to_string(ready[1]);
      ::execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1024x640x24", "-noreset",
               "-nolisten", "tcp", nullptr);
      ::_exit(127);
    }
    ::close(ready[1]);
    pollfd p{ready[0], POLLIN, 0};
    char number[16] = {};
    if (::poll(&p, 1, 60'000) > 0 && ::read(ready[0], number, sizeof number - 1) > 0) {
      display_ = ":" + std::string(number, std::strcspn(number, "\n"));
    }
    // Open while the server runs: it may write to it again, and a closed
    // pipe stops it.
    readyFd_ = ready[0];
  }
  ~VirtualScreen() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
    if (readyFd_ >= 0) ::close(readyFd_);
  }
  VirtualScreen(const VirtualScreen&) = delete;
  VirtualScreen& operator=(const VirtualScreen&) = delete;

  // Empty when Xvfb did not start.
  const std::string& display() const { return display_; }

 private:
  std::string display_;
  pid_t pid_ = -1;
  int readyFd_ = -1;
};

}  // namespace klipora::testing
