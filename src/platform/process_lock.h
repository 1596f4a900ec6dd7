// ProcessLocks: advisory locks on files, to keep two daemons off one library.
// A lock is held while its HeldLock lives; the kernel drops it when the
// process dies, so a crashed daemon never blocks the next one. The lock file
// holds a short text from its holder (who it is, where to reach it).
//
// Thread rules: safe from any thread.
#pragma once

#include <memory>
#include <string>

#include "platform/status.h"

namespace klipora {

class HeldLock {
 public:
  HeldLock() = default;
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;
  virtual ~HeldLock() = default;  // releases the lock
  // Replaces the holder's text (say, once the holder can be reached).
  virtual Status setHolderInfo(const std::string& holderInfo) = 0;
};

class ProcessLocks {
 public:
  ProcessLocks() = default;
  ProcessLocks(const ProcessLocks&) = delete;
  ProcessLocks& operator=(const ProcessLocks&) = delete;
  virtual ~ProcessLocks() = default;

  // Takes the lock on `path` (creating the file) without waiting and writes
  // `holderInfo` into it. AlreadyExists when another holder has it, with
  // that holder's text as the message.
  virtual Result<std::unique_ptr<HeldLock>> tryLock(const std::string& path,
                                                    const std::string& holderInfo) = 0;
  // The holder's text while someone holds the lock; NotFound when nobody does.
  virtual Result<std::string> currentHolder(const std::string& path) = 0;
};

}  // namespace klipora
