// MountTableWatch: says when the system's table of mounted volumes changes, so
// the coordinator can check whether the library's volume went away or came
// back. The Linux watch (ProcMountInfoWatch) waits for POLLPRI on
// /proc/self/mountinfo; the folder-health probe timer backs it up.
//
// Thread rules: start() and stop() on the main thread; `changed` runs on the
// main loop. A change may be reported more than once; callers re-check.
#pragma once

#include <functional>

#include "platform/status.h"

namespace klipora {

class MountTableWatch {
 public:
  MountTableWatch() = default;
  MountTableWatch(const MountTableWatch&) = delete;
  MountTableWatch& operator=(const MountTableWatch&) = delete;
  virtual ~MountTableWatch() = default;

  // Starts watching. Fails (Unavailable) when the mount table cannot be
  // watched; the caller then relies on its probe timer alone.
  virtual Status start(std::function<void()> changed) = 0;
  // Stops watching; no `changed` call starts after it returns. Idempotent.
  virtual void stop() = 0;
};

}  // namespace klipora
