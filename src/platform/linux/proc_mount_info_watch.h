// ProcMountInfoWatch: the Linux MountTableWatch. The kernel marks
// /proc/self/mountinfo with POLLPRI whenever a mount or unmount happens; a
// small thread waits for that and posts the news to the main loop.
// Thread rules: as MountTableWatch.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "platform/clock.h"
#include <memory>

#include "platform/mount_table_watch.h"

namespace klipora {

class ProcMountInfoWatch final : public MountTableWatch {
 public:
  explicit ProcMountInfoWatch(Executor& mainLoop, std::string path = "/proc/self/mountinfo");
  ~ProcMountInfoWatch() override;

  Status start(std::function<void()> changed) override;
  void stop() override;

 private:
  void run(int mountFd, int stopFd);

  Executor& mainLoop_;
  const std::string path_;
  std::thread thread_;
  int stopFd_ = -1;
  // Shared with posted callbacks, so a stop() wins over posts in flight.
  std::shared_ptr<std::atomic<bool>> active_;
};

}  // namespace klipora
