#include "platform/linux/inotify_folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/log.h"

namespace klipora {

namespace {

constexpr uint32_t kMask = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM |
                           IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;
// The kernel fills a read with as many whole events as fit; this holds
// thousands of them, so a burst costs few wake-ups.
constexpr size_t kBufferSize = 64 * 1024;

Status WatchError(int err, const std::string& folder) {
  std::string context = "cannot watch " + folder;
  switch (err) {
    case ENOENT:
      return Status::NotFound(context + ": it does not exist");
    case EACCES:
      return Status::PermissionDenied(context + ": permission denied");
    case ENOTDIR:
      return Status::InvalidArgument(context + ": it is not a folder");
    case ENOSPC:
      return Status::Unavailable(context +
                                 ": the system's limit of inotify watches is reached (raise the "
                                 "sysctl fs.inotify.max_user_watches)");
    default:
      return Status::FromErrno(err, context);
  }
}

Status InitError(int err) {
  std::string message = std::string("cannot create an inotify instance: ") + std::strerror(err);
  if (err == EMFILE) {
    message += " (the limit is the sysctl fs.inotify.max_user_instances, or open files)";
  }
  return Status::Unavailable(std::move(message));
}

// "/a/b/" and "/a/b" name the same folder; events should not read "/a/b//x".
std::string WithoutTrailingSlashes(std::string folder) {
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

std::string Join(const std::string& folder, const std::string& name) {
  if (!folder.empty() && folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

}  // namespace

InotifyFolderWatch::InotifyFolderWatch(asio::io_context& context)
    : descriptor_(context), buffer_(new char[kBufferSize]) {
  int fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) {
    initStatus_ = InitError(errno);
    return;
  }
  asio::error_code ec;
  descriptor_.assign(fd, ec);
  if (ec) {
    ::close(fd);
    initStatus_ = Status::Unavailable("cannot wait on the inotify instance: " + ec.message());
  }
}

InotifyFolderWatch::~InotifyFolderWatch() {
  // A completion already queued on the io_context finds alive_ gone and
  // returns without touching this object.
  alive_.reset();
  asio::error_code ignored;
  descriptor_.close(ignored);
}

void InotifyFolderWatch::setHandler(Handler handler) { handler_ = std::move(handler); }

Result<FolderWatch::WatchId> InotifyFolderWatch::add(const std::string& folder) {
  if (!initStatus_.ok()) return Err(initStatus_.WithContext("cannot watch " + folder));
  std::string path = WithoutTrailingSlashes(folder);
  int wd = ::inotify_add_watch(descriptor_.native_handle(), path.c_str(), kMask);
  if (wd < 0) return Err(WatchError(errno, folder));
  // The kernel returns the same descriptor for a folder it already watches,
  // whatever path reached it.
  if (auto it = watchesByDescriptor_.find(wd); it != watchesByDescriptor_.end()) {
    return it->second.id;
  }
  WatchId id = nextId_++;
  watchesByDescriptor_[wd] = Watch{id, std::move(path)};
  descriptorsById_[id] = wd;
  if (!waiting_) waitForEvents();
  return id;
}

void InotifyFolderWatch::remove(WatchId id) {
  auto it = descriptorsById_.find(id);
  if (it == descriptorsById_.end()) return;
  int wd = it->second;
  descriptorsById_.erase(it);
  watchesByDescriptor_.erase(wd);
  // Events already queued for it, and the IN_IGNORED this causes, now carry an
  // unknown descriptor and are dropped.
  ::inotify_rm_watch(descriptor_.native_handle(), wd);
}

void InotifyFolderWatch::waitForEvents() {
  waiting_ = true;
  descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                         [this, alive = std::weak_ptr<bool>(alive_)](const asio::error_code& ec) {
                           if (!alive.expired()) onReadable(ec);
                         });
}

void InotifyFolderWatch::onReadable(const asio::error_code& ec) {
  waiting_ = false;
  if (ec) {
    log::error("FolderWatch", "waiting for inotify events failed: %s", ec.message().c_str());
    return;
  }
  if (!readEvents()) return;
  // With nothing watched the loop may fall idle; removing the last watch
  // queued an IN_IGNORED, so this read has come after it.
  if (!waiting_ && !watchesByDescriptor_.empty()) waitForEvents();
}

bool InotifyFolderWatch::readEvents() {
  char* buffer = buffer_.get();
  for (;;) {
    ssize_t n = ::read(descriptor_.native_handle(), buffer, kBufferSize);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN) {
      log::error("FolderWatch", "reading inotify events failed: %s", std::strerror(errno));
    }
    if (n <= 0) return true;
    size_t end = static_cast<size_t>(n);
    size_t offset = 0;
    while (offset + sizeof(inotify_event) <= end) {
      // Events are packed with names of any length; copy each header out
      // rather than rely on its alignment.
      inotify_event header;
      std::memcpy(&header, buffer + offset, sizeof header);
      offset += sizeof header;
      size_t room = std::min<size_t>(header.len, end - offset);
      std::string name(buffer + offset, ::strnlen(buffer + offset, room));
      offset += header.len;
      if (!dispatch(header.wd, header.mask, name)) return false;
    }
  }
}

bool InotifyFolderWatch::dispatch(int wd, uint32_t mask, const std::string& name) {
  using Kind = FolderWatchEvent::Kind;
  if (mask & IN_Q_OVERFLOW) return deliver({Kind::overflow, "", false});
  auto it = watchesByDescriptor_.find(wd);
  if (it == watchesByDescriptor_.end()) return true;
  if (mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) {
    std::string folder = it->second.folder;
    forget(wd);
    // A moved folder would stay watched under its new name; end that too.
    if (mask & IN_MOVE_SELF) ::inotify_rm_watch(descriptor_.native_handle(), wd);
    return deliver({Kind::folderGone, std::move(folder), true});
  }
  Kind kind;
  if (mask & IN_CREATE) {
    kind = Kind::created;
  } else if (mask & IN_MODIFY) {
    kind = Kind::modified;
  } else if (mask & IN_CLOSE_WRITE) {
    kind = Kind::closedWrite;
  } else if (mask & IN_MOVED_TO) {
    kind = Kind::movedIn;
  } else if (mask & IN_MOVED_FROM) {
    kind = Kind::movedOut;
  } else if (mask & IN_DELETE) {
    kind = Kind::deleted;
  } else {
    return true;
  }
  return deliver({kind, Join(it->second.folder, name), (mask & IN_ISDIR) != 0});
}

bool InotifyFolderWatch::deliver(const FolderWatchEvent& event) {
  if (!handler_) return true;
  std::weak_ptr<bool> alive = alive_;
  // A copy, so that the handler may replace itself or destroy this object.
  Handler handler = handler_;
  handler(event);
  return !alive.expired();
}

void InotifyFolderWatch::forget(int wd) {
  auto it = watchesByDescriptor_.find(wd);
  if (it == watchesByDescriptor_.end()) return;
  descriptorsById_.erase(it->second.id);
  watchesByDescriptor_.erase(it);
}

}  // namespace klipora
