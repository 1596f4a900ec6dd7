#include "platform/testing/fake_daemon_platform.h"

namespace klipora::testing {

Status FakeMountTableWatch::start(std::function<void()> changed) {
  if (failStart) return Status::Unavailable("no mount table here");
  changed_ = std::move(changed);
  return Status::Ok();
}

void FakeMountTableWatch::simulateChange() {
  if (changed_) changed_();
}

namespace {

class FakeHeldLock final : public HeldLock {
 public:
  FakeHeldLock(std::map<std::string, std::string>& held, std::string path)
      : held_(held), path_(std::move(path)) {}
  ~FakeHeldLock() override { held_.erase(path_); }
  Status setHolderInfo(const std::string& text) override {
    held_[path_] = text;
    return Status::Ok();
  }

 private:
  std::map<std::string, std::string>& held_;
  std::string path_;
};

}  // namespace

Result<std::unique_ptr<HeldLock>> FakeProcessLocks::tryLock(const std::string& path,
                                                            const std::string& holderInfo) {
  if (auto it = held.find(path); it != held.end()) return Err(Status::AlreadyExists(it->second));
  held[path] = holderInfo;
  return std::unique_ptr<HeldLock>(std::make_unique<FakeHeldLock>(held, path));
}

Result<std::string> FakeProcessLocks::currentHolder(const std::string& path) {
  if (auto it = held.find(path); it != held.end()) return it->second;
  return Err(Status::NotFound("nobody holds " + path));
}

Status FakeControlChannelServer::listen(const std::string& where, Handler handler) {
  if (handler_) return Status::FailedPrecondition("already listening");
  address = where;
  handler_ = std::move(handler);
  return Status::Ok();
}

void FakeControlChannelServer::close() {
  handler_ = nullptr;
  *alive_ = false;
  alive_ = std::make_shared<bool>(true);
}

void FakeControlChannelServer::deliver(const std::string& request) {
  if (!handler_) return;
  auto alive = alive_;
  handler_(request, [this, alive](const std::string& reply) {
    if (*alive) replies.push_back(reply);
  });
}

}  // namespace klipora::testing
