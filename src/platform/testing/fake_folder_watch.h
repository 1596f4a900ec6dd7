// FakeFolderWatch: a FolderWatch whose events the test sends by hand.
#pragma once

#include <map>
#include <set>
#include <string>

#include "platform/folder_watch.h"

namespace klipora::testing {

class FakeFolderWatch final : public FolderWatch {
 public:
  void setHandler(Handler handler) override { handler_ = std::move(handler); }
  Result<WatchId> add(const std::string& folder) override {
    if (refused.count(folder)) return Err(Status::PermissionDenied("watch " + folder));
    if (auto it = watched_.find(folder); it != watched_.end()) return it->second;
    watched_[folder] = nextId_;
    return nextId_++;
  }
  void remove(WatchId id) override {
    std::erase_if(watched_, [id](const auto& entry) { return entry.second == id; });
  }

  // Delivers an event, as the real watch does, only for a watched folder.
  void send(FolderWatchEvent::Kind kind, const std::string& path, bool isDirectory = false) {
    const std::string folder =
        kind == FolderWatchEvent::Kind::folderGone ? path : deletingLastPathComponent(path);
    if (kind != FolderWatchEvent::Kind::overflow && !watched_.count(folder)) return;
    if (kind == FolderWatchEvent::Kind::folderGone) watched_.erase(folder);
    if (handler_) handler_({kind, path, isDirectory});
  }
  bool watches(const std::string& folder) const { return watched_.count(folder) > 0; }
  size_t watchCount() const { return watched_.size(); }

  std::set<std::string> refused;  // folders whose add() fails

 private:
  Handler handler_;
  std::map<std::string, WatchId> watched_;
  WatchId nextId_ = 1;
};

}  // namespace klipora::testing
