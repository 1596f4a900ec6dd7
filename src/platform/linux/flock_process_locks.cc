#include "platform/linux/flock_process_locks.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace klipora {
namespace {

Status WriteInfo(int fd, const std::string& text) {
  if (::ftruncate(fd, 0) != 0 ||
      ::pwrite(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    return Status::FromErrno(errno, "cannot write the lock file");
  }
  return Status::Ok();
}

class FlockHeldLock final : public HeldLock {
 public:
  explicit FlockHeldLock(int fd) : fd_(fd) {}
  ~FlockHeldLock() override { ::close(fd_); }
  Status setHolderInfo(const std::string& text) override { return WriteInfo(fd_, text); }

 private:
  int fd_;
};

std::string ReadAll(int fd) {
  std::string out;
  char buf[512];
  off_t offset = 0;
  for (;;) {
    ssize_t n = ::pread(fd, buf, sizeof buf, offset);
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
    offset += n;
  }
  return out;
}

}  // namespace

Result<std::unique_ptr<HeldLock>> FlockProcessLocks::tryLock(const std::string& path,
                                                             const std::string& holderInfo) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return Err(Status::FromErrno(errno, "cannot open " + path));
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    int err = errno;
    std::string holder = ReadAll(fd);
    ::close(fd);
    if (err == EWOULDBLOCK) return Err(Status::AlreadyExists(holder));
    return Err(Status::FromErrno(err, "cannot lock " + path));
  }
  if (Status s = WriteInfo(fd, holderInfo); !s.ok()) {
    ::close(fd);
    return Err(s.WithContext(path));
  }
  return std::unique_ptr<HeldLock>(std::make_unique<FlockHeldLock>(fd));
}

Result<std::string> FlockProcessLocks::currentHolder(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return Err(Status::NotFound("no lock at " + path));
    return Err(Status::FromErrno(errno, "cannot open " + path));
  }
  if (::flock(fd, LOCK_SH | LOCK_NB) == 0) {
    ::close(fd);
    return Err(Status::NotFound("nobody holds " + path));
  }
  int err = errno;
  std::string holder = err == EWOULDBLOCK ? ReadAll(fd) : std::string();
  ::close(fd);
  if (err != EWOULDBLOCK) return Err(Status::FromErrno(err, "cannot examine " + path));
  return holder;
}

}  // namespace klipora
