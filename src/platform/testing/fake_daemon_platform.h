// Fakes of the platform pieces a daemon needs: the mount table watch, the
// session watch, the process locks and the control channel. Each keeps public records so tests
// can drive and inspect them. Single-threaded: use from the test's thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/control_channel.h"
#include "platform/mount_table_watch.h"
#include "platform/process_lock.h"
#include "platform/session_activity_watch.h"

namespace klipora::testing {

class FakeMountTableWatch final : public MountTableWatch {
 public:
  Status start(std::function<void()> changed) override;
  void stop() override { changed_ = nullptr; }
  bool watching() const { return static_cast<bool>(changed_); }
  // Reports a change of the mount table, as the kernel would.
  void simulateChange();
  // Makes the next start() fail like a system without the mount table.
  bool failStart = false;

 private:
  std::function<void()> changed_;
};

class FakeSessionActivityWatch final : public SessionActivityWatch {
 public:
  Status start(std::function<void(SessionReturn)> returned) override {
    if (failStart) return Status::Unavailable("no bus in this test");
    returned_ = std::move(returned);
    return Status::Ok();
  }
  void stop() override { returned_ = nullptr; }
  bool watching() const { return static_cast<bool>(returned_); }
  // Reports that the user came back, as the system would.
  void simulate(SessionReturn what) {
    if (returned_) returned_(what);
  }
  // Makes the next start() fail like a system that does not tell.
  bool failStart = false;

 private:
  std::function<void(SessionReturn)> returned_;
};

class FakeProcessLocks final : public ProcessLocks {
 public:
  Result<std::unique_ptr<HeldLock>> tryLock(const std::string& path,
                                            const std::string& holderInfo) override;
  Result<std::string> currentHolder(const std::string& path) override;

  // Path → holder text of the locks held now.
  std::map<std::string, std::string> held;
};

// A server that takes requests from the test instead of a socket.
class FakeControlChannelServer final : public ControlChannelServer {
 public:
  Status listen(const std::string& address, Handler handler) override;
  void close() override;

  bool listening() const { return static_cast<bool>(handler_); }
  std::string address;
  // Hands `request` to the handler; replies arrive in `replies` as they come.
  void deliver(const std::string& request);
  std::vector<std::string> replies;

 private:
  Handler handler_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace klipora::testing
