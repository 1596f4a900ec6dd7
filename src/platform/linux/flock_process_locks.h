// FlockProcessLocks: ProcessLocks on flock(2). The lock belongs to an open
// file description, so it is dropped when the holder closes the file or
// dies, and two opens in one process exclude each other like two processes.
#pragma once

#include "platform/process_lock.h"

namespace klipora {

class FlockProcessLocks final : public ProcessLocks {
 public:
  Result<std::unique_ptr<HeldLock>> tryLock(const std::string& path,
                                            const std::string& holderInfo) override;
  Result<std::string> currentHolder(const std::string& path) override;
};

}  // namespace klipora
