// FolderWatch: what happens to the names in a set of folders, as it happens
// (inotify on Linux). One watch covers one folder, not its subfolders; a
// caller that wants a tree adds the subfolders as they appear. Events arrive
// on the main loop, in the order the kernel reported them.
//
// Thread rules: main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/status.h"

namespace klipora {

struct FolderWatchEvent {
  enum class Kind {
    created,      // a name appeared; a file may still be being written
    modified,     // a file was written to
    closedWrite,  // a file open for writing was closed: probably complete
    movedIn,      // a name was renamed or moved into the folder: probably complete
    movedOut,     // a name was renamed or moved out of the folder
    deleted,      // a name was removed
    folderGone,   // the watched folder itself was deleted, moved or unmounted; its watch ended
    overflow,     // events were lost: every watched folder must be listed again
  };
  Kind kind = Kind::created;
  // The name's absolute path; the folder's own path for folderGone; empty for
  // overflow.
  std::string path;
  bool isDirectory = false;
};

class FolderWatch {
 public:
  using WatchId = int64_t;
  using Handler = std::function<void(const FolderWatchEvent&)>;

  FolderWatch() = default;
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;
  virtual ~FolderWatch() = default;

  // Receives every event from now on (one handler; a new one replaces it).
  virtual void setHandler(Handler handler) = 0;
  // Starts watching one folder. Adding a folder already watched returns its
  // id again. NotFound when it does not exist, PermissionDenied when it
  // cannot be read, InvalidArgument when it is not a folder, Unavailable
  // when the system's watch limit is reached (the message names the setting
  // to raise).
  virtual Result<WatchId> add(const std::string& folder) = 0;
  // Stops watching; unknown ids are ignored. No event of it arrives later.
  virtual void remove(WatchId id) = 0;
};

}  // namespace klipora
