#include "platform/linux/proc_mount_info_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace klipora {

ProcMountInfoWatch::ProcMountInfoWatch(Executor& mainLoop, std::string path)
    : mainLoop_(mainLoop), path_(std::move(path)) {}

ProcMountInfoWatch::~ProcMountInfoWatch() { stop(); }

Status ProcMountInfoWatch::start(std::function<void()> changed) {
  if (thread_.joinable()) return Status::FailedPrecondition("mount table watch already started");
  int mountFd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  if (mountFd < 0) return Status::FromErrno(errno, "cannot open " + path_);
  int stopFd = ::eventfd(0, EFD_CLOEXEC);
  if (stopFd < 0) {
    Status s = Status::FromErrno(errno, "eventfd");
    ::close(mountFd);
    return s;
  }
  stopFd_ = stopFd;
  active_ = std::make_shared<std::atomic<bool>>(true);
  auto active = active_;
  auto notify = [this, active, changed = std::move(changed)] {
    mainLoop_.post([active, changed] {
      if (active->load()) changed();
    });
  };
  thread_ = std::thread([this, mountFd, stopFd, notify] {
    // Reading the file once clears the initial "changed" state.
    char buf[4096];
    while (::read(mountFd, buf, sizeof buf) > 0) {
    }
    for (;;) {
      pollfd fds[2] = {{mountFd, POLLPRI, 0}, {stopFd, POLLIN, 0}};
      int n = ::poll(fds, 2, -1);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 || (fds[1].revents & POLLIN)) break;
      if (fds[0].revents & (POLLPRI | POLLERR)) {
        ::lseek(mountFd, 0, SEEK_SET);
        while (::read(mountFd, buf, sizeof buf) > 0) {
        }
        notify();
      }
    }
    ::close(mountFd);
  });
  return Status::Ok();
}

void ProcMountInfoWatch::stop() {
  if (active_) active_->store(false);
  if (!thread_.joinable()) return;
  uint64_t one = 1;
  (void)!::write(stopFd_, &one, sizeof one);
  thread_.join();
  ::close(stopFd_);
  stopFd_ = -1;
}

}  // namespace klipora
