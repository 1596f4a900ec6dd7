#include "platform/linux/posix_file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace klipora {
namespace {

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes now and reports the error close() gives (NFS reports late write errors here).
  int close() {
    int rc = ::close(fd_);
    fd_ = -1;
    return rc;
  }

 private:
  int fd_;
};

Status WriteAll(int fd, std::string_view data, const std::string& path) {
  size_t written = 0;
  while (written < data.size()) {
    ssize_t n = ::write(fd, data.data() + written, data.size() - written);
    if (n < 0) {
      if (errno == EINTR) continue;
      return Status::FromErrno(errno, "write " + path);
    }
    written += static_cast<size_t>(n);
  }
  return Status::Ok();
}

// Writes `data` into the new file `path` opened with `flags`; removes it on failure.
Status WriteAndSync(const std::string& path, std::string_view data, int flags) {
  Fd fd(::open(path.c_str(), flags | O_WRONLY | O_CLOEXEC, 0644));
  if (fd.get() < 0) return Status::FromErrno(errno, "create " + path);
  Status s = WriteAll(fd.get(), data, path);
  // fdatasync: the data and the size reach the disk; timestamps may lag.
  if (s.ok() && ::fdatasync(fd.get()) != 0) s = Status::FromErrno(errno, "sync " + path);
  if (fd.close() != 0 && s.ok()) s = Status::FromErrno(errno, "close " + path);
  if (!s.ok()) ::unlink(path.c_str());
  return s;
}

Date FromTimestamp(const struct statx_timestamp& ts) {
  return Date::fromSecondsSince1970(static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9);
}

// Opens `path` for reading only when it is a regular file. O_NONBLOCK makes
// the open of a named pipe return at once (a blocking open waits for a
// writer for ever); the type is then checked on the open descriptor, before
// anything is read, so nothing can change it in between.
Result<std::pair<int, struct stat>> OpenRegularFile(const std::string& path) {
  int raw = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (raw < 0) {
    int err = errno;
    struct stat st;
    if (err == ELOOP) {
      return Err(Status::InvalidArgument(path + ": too many symbolic links (a link loop)"));
    }
    if (err == ENXIO && ::stat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) {
      return Err(Status::InvalidArgument(path + ": it is a socket, not a file"));
    }
    if (err == ENOENT && ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
      return Err(Status::NotFound(path + ": a link to a file that does not exist"));
    }
    return Err(Status::FromErrno(err, "open " + path));
  }
  Fd fd(raw);
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return Err(Status::FromErrno(errno, "stat " + path));
  if (!S_ISREG(st.st_mode)) {
    const char* what = S_ISDIR(st.st_mode)    ? "it is a folder"
                       : S_ISFIFO(st.st_mode) ? "it is a named pipe, not a file"
                       : S_ISSOCK(st.st_mode) ? "it is a socket, not a file"
                                              : "it is a device, not a file";
    return Err(Status::InvalidArgument(path + ": " + what));
  }
  // Reads of a regular file never block; clearing the flag keeps it so on
  // file systems that would honour it.
  (void)::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
  int out = fd.get();
  (void)fd.release();
  return std::make_pair(out, st);
}

}  // namespace

Result<std::string> PosixFileSystem::readFile(const std::string& path) {
  ASSIGN_OR_RETURN(auto opened, OpenRegularFile(path));
  Fd fd(opened.first);
  const struct stat& st = opened.second;
  std::string data;
  data.resize(st.st_size > 0 ? static_cast<size_t>(st.st_size) : 0);
  size_t got = 0;
  while (true) {
    if (got == data.size()) data.resize(data.size() + 65536);  // file grew, or size unknown
    ssize_t n = ::read(fd.get(), data.data() + got, data.size() - got);
    if (n < 0) {
      if (errno == EINTR) continue;
      return Err(Status::FromErrno(errno, "read " + path));
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  data.resize(got);
  return data;
}

StreamedCopy PosixFileSystem::copyStreaming(
    const std::string& from, const std::string& to,
    const std::function<Status(std::string_view chunk)>& eachChunk) {
  StreamedCopy result;
  auto opened = OpenRegularFile(from);
  if (!opened) {
    result.sourceError = opened.error();
    return result;
  }
  Fd in(opened->first);
  Fd out(::open(to.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644));
  if (out.get() < 0) {
    result.destinationError = Status::FromErrno(errno, "create " + to);
    return result;
  }
  std::string buffer(kCopyChunkSize, '\0');
  while (result.ok()) {
    ssize_t n = ::read(in.get(), buffer.data(), buffer.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      result.sourceError = Status::FromErrno(errno, "read " + from);
      break;
    }
    if (n == 0) break;
    std::string_view chunk(buffer.data(), static_cast<size_t>(n));
    result.sourceError = eachChunk(chunk);
    if (result.sourceError.ok()) result.destinationError = WriteAll(out.get(), chunk, to);
    result.size += n;
  }
  if (result.ok() && ::fdatasync(out.get()) != 0) {
    result.destinationError = Status::FromErrno(errno, "sync " + to);
  }
  if (out.close() != 0 && result.ok()) {
    result.destinationError = Status::FromErrno(errno, "close " + to);
  }
  if (!result.ok()) ::unlink(to.c_str());
  return result;
}

Result<std::string> PosixFileSystem::readFileRange(const std::string& path, int64_t offset,
                                                   int64_t length) {
  ASSIGN_OR_RETURN(auto opened, OpenRegularFile(path));
  Fd fd(opened.first);
  const struct stat& st = opened.second;
  if (offset < 0) offset = std::max<int64_t>(0, st.st_size + offset);
  std::string data(static_cast<size_t>(std::max<int64_t>(0, length)), '\0');
  size_t got = 0;
  while (got < data.size()) {
    ssize_t n = ::pread(fd.get(), data.data() + got, data.size() - got,
                        static_cast<off_t>(offset + static_cast<int64_t>(got)));
    if (n < 0) {
      if (errno == EINTR) continue;
      return Err(Status::FromErrno(errno, "read " + path));
    }
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  data.resize(got);
  return data;
}

Result<std::string> PosixFileSystem::resolvingSymlinks(const std::string& path) {
  char* resolved = ::realpath(path.c_str(), nullptr);
  if (resolved == nullptr) {
    if (errno == ELOOP) return Err(Status::InvalidArgument(path + ": too many symbolic links"));
    return Err(Status::FromErrno(errno, "resolve " + path));
  }
  std::string out(resolved);
  ::free(resolved);
  return out;
}

Status PosixFileSystem::writeNewFile(const std::string& path, std::string_view data) {
  return WriteAndSync(path, data, O_CREAT | O_EXCL);
}

Status PosixFileSystem::writeFileAtomically(const std::string& path, std::string_view data) {
  std::string temp = path + ".tmp-" + std::to_string(::getpid());
  ::unlink(temp.c_str());
  RETURN_IF_ERROR(WriteAndSync(temp, data, O_CREAT | O_EXCL));
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    Status s = Status::FromErrno(errno, "rename " + temp);
    ::unlink(temp.c_str());
    return s;
  }
  return Status::Ok();
}

Status PosixFileSystem::copyFile(const std::string& from, const std::string& to) {
  StreamedCopy copy = copyStreaming(from, to, [](std::string_view) { return Status::Ok(); });
  return copy.sourceError.ok() ? copy.destinationError : copy.sourceError;
}

Status PosixFileSystem::removeFile(const std::string& path) {
  if (::unlink(path.c_str()) != 0) return Status::FromErrno(errno, "remove " + path);
  return Status::Ok();
}

Status PosixFileSystem::rename(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) {
    return Status::FromErrno(errno, "rename " + from + " to " + to);
  }
  return Status::Ok();
}

Status PosixFileSystem::createDirectories(const std::string& path) {
  if (path.empty()) return Status::InvalidArgument("empty folder path");
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return Status::Ok();
    return Status::AlreadyExists(path + " exists and is not a folder");
  }
  std::string parent = deletingLastPathComponent(path);
  if (!parent.empty() && parent != path) RETURN_IF_ERROR(createDirectories(parent));
  if (::mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    return Status::FromErrno(errno, "create folder " + path);
  }
  return Status::Ok();
}

Result<FileAttributes> PosixFileSystem::attributes(const std::string& path) {
  struct statx sx;
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0) {
    return Err(Status::FromErrno(errno, "stat " + path));
  }
  FileAttributes a;
  a.size = static_cast<int64_t>(sx.stx_size);
  a.isDirectory = S_ISDIR(sx.stx_mode);
  a.isRegularFile = S_ISREG(sx.stx_mode);
  if (sx.stx_mask & STATX_BTIME) a.birthTime = FromTimestamp(sx.stx_btime);
  a.changeTime = FromTimestamp(sx.stx_ctime);
  a.modificationTime = FromTimestamp(sx.stx_mtime);
  return a;
}

bool PosixFileSystem::exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

bool PosixFileSystem::isWritableDirectory(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  return ::access(path.c_str(), W_OK | X_OK) == 0;
}

Result<std::vector<std::string>> PosixFileSystem::listDirectory(const std::string& path) {
  DIR* dir = ::opendir(path.c_str());
  if (!dir) return Err(Status::FromErrno(errno, "list " + path));
  std::vector<std::string> names;
  while (struct dirent* entry = ::readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    names.emplace_back(entry->d_name);
  }
  ::closedir(dir);
  return names;
}

Status PosixFileSystem::removeExtendedAttribute(const std::string& path, const std::string& name) {
  if (::removexattr(path.c_str(), name.c_str()) != 0 && errno != ENODATA && errno != ENOTSUP) {
    return Status::FromErrno(errno, "remove attribute " + name + " of " + path);
  }
  return Status::Ok();
}

Result<std::string> PosixFileSystem::extendedAttribute(const std::string& path,
                                                       const std::string& name) {
  ssize_t size = ::getxattr(path.c_str(), name.c_str(), nullptr, 0);
  if (size < 0) {
    if (errno == ENODATA || errno == ENOTSUP) return Err(Status::NotFound(name));
    return Err(Status::FromErrno(errno, "read attribute " + name + " of " + path));
  }
  std::string value(static_cast<size_t>(size), '\0');
  size = ::getxattr(path.c_str(), name.c_str(), value.data(), value.size());
  if (size < 0) return Err(Status::FromErrno(errno, "read attribute " + name + " of " + path));
  value.resize(static_cast<size_t>(size));
  return value;
}

Result<VolumeCapacity> PosixFileSystem::volumeCapacity(const std::string& path) {
  struct statvfs vfs;
  if (::statvfs(path.c_str(), &vfs) != 0) {
    return Err(Status::FromErrno(errno, "volume capacity of " + path));
  }
  VolumeCapacity c;
  c.freeBytes = static_cast<int64_t>(vfs.f_bavail) * static_cast<int64_t>(vfs.f_frsize);
  c.totalBytes = static_cast<int64_t>(vfs.f_blocks) * static_cast<int64_t>(vfs.f_frsize);
  return c;
}

}  // namespace klipora
