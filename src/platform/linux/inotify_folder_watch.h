// InotifyFolderWatch: the Linux FolderWatch. One inotify instance holds every
// watch; its descriptor is read on the main loop whenever the kernel has
// events, so they reach the handler in the kernel's order.
//
// The io_context may outlive this object: destroying it cancels the pending
// read and no later completion touches it. The handler may add, remove or
// replace watches (or the handler) from inside its call.
//
// Thread rules: as FolderWatch; the io_context must be run on the main thread.
#pragma once

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <map>
#include <memory>
#include <string>

#include "platform/folder_watch.h"

namespace klipora {

class InotifyFolderWatch final : public FolderWatch {
 public:
  explicit InotifyFolderWatch(asio::io_context& context);
  ~InotifyFolderWatch() override;

  void setHandler(Handler handler) override;
  Result<WatchId> add(const std::string& folder) override;
  void remove(WatchId id) override;

 private:
  struct Watch {
    WatchId id;
    std::string folder;
  };

  void waitForEvents();
  void onReadable(const asio::error_code& ec);
  // These return false when the handler destroyed this object.
  bool readEvents();
  bool dispatch(int wd, uint32_t mask, const std::string& name);
  bool deliver(const FolderWatchEvent& event);
  void forget(int wd);

  asio::posix::stream_descriptor descriptor_;
  // Why there is no inotify instance, when the kernel refused one.
  Status initStatus_;
  Handler handler_;
  std::map<int, Watch> watchesByDescriptor_;
  std::map<WatchId, int> descriptorsById_;
  WatchId nextId_ = 1;
  // A wait is pending only while something is watched (up to the read after
  // the last removal), so an idle loop can still run out of work.
  bool waiting_ = false;
  std::unique_ptr<char[]> buffer_;
  // Completions and handler calls hold a weak reference to this; the
  // destructor drops it first.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace klipora
