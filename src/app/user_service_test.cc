#include "app/user_service.h"

#include <gtest/gtest.h>

#include "platform/testing/memory_file_system.h"

namespace klipora::app {
namespace {

class FakeServiceManager final : public ServiceManager {
 public:
  void notify(std::string_view state) override { notes.emplace_back(state); }
  Status enableUnit(const std::string& unitPath) override {
    calls.push_back("enable " + unitPath);
    if (!enableFails.ok()) return enableFails;
    state.enabled = true;
    return Status::Ok();
  }
  Status disableUnit(const std::string& unitPath) override {
    calls.push_back("disable " + unitPath);
    state.enabled = false;
    return Status::Ok();
  }
  UnitState unitState(const std::string&) override { return state; }

  std::vector<std::string> notes, calls;
  UnitState state;
  Status enableFails;
};

class UserServiceTest : public ::testing::Test {
 protected:
  UserServicePaths paths_ = userServicePaths(nullptr, "/home/ann");
  testing::MemoryFileSystem fs_;
  FakeServiceManager manager_;
  UserService service_{fs_, manager_, paths_};
};

TEST_F(UserServiceTest, UnitAndEntryRunThisBinaryOnThisLibrary) {
  EXPECT_EQ(paths_.unitPath, "/home/ann/.config/systemd/user/klipora.service");
  EXPECT_EQ(paths_.autostartPath, "/home/ann/.config/autostart/klipora.desktop");
  EXPECT_EQ(userServicePaths("/cfg", "/home/ann").unitPath, "/cfg/systemd/user/klipora.service");
  EXPECT_EQ(userServicePaths("relative", "/home/ann").unitPath, paths_.unitPath);
  EXPECT_TRUE(userServicePaths(nullptr, nullptr).unitPath.empty());

  ServiceCommand plain{"/usr/bin/klipora", ""};
  std::string unit = serviceUnitText(plain);
  EXPECT_NE(unit.find("\nType=notify\n"), std::string::npos);
  EXPECT_NE(unit.find("\nExecStart=/usr/bin/klipora run\n"), std::string::npos);
  EXPECT_NE(unit.find("\nRestart=on-failure\n"), std::string::npos);
  EXPECT_NE(unit.find("\nWantedBy=default.target\n"), std::string::npos);
  EXPECT_NE(autostartEntryText(plain).find("\nExec=/usr/bin/klipora run --quiet --login\n"),
            std::string::npos);

  ServiceCommand odd{"/opt/my apps/klipora", "/home/ann/100% \"shots\"$x"};
  EXPECT_NE(serviceUnitText(odd).find(
                "ExecStart=\"/opt/my apps/klipora\" --home \"/home/ann/100%% \\\"shots\\\"$$x\" run"),
            std::string::npos);
  EXPECT_NE(autostartEntryText(odd).find(
                "Exec=\"/opt/my apps/klipora\" --home \"/home/ann/100%% \\\\\"shots\\\\\"\\\\$x\""),
            std::string::npos);
}

TEST_F(UserServiceTest, EnableWritesBothAndSaysWhichIsUsed) {
  EXPECT_EQ(service_.status().inUse, "none");
  ASSERT_TRUE(service_.enable({"/usr/bin/klipora", ""}).ok());
  EXPECT_EQ(*fs_.readFile(paths_.unitPath), serviceUnitText({"/usr/bin/klipora", ""}));
  EXPECT_TRUE(fs_.exists(paths_.autostartPath));
  EXPECT_EQ(manager_.calls, (std::vector<std::string>{"enable " + paths_.unitPath}));
  EXPECT_EQ(service_.status().inUse, "autostart");  // no user instance runs now
  manager_.state.managerRunning = true;
  EXPECT_EQ(service_.status().inUse, "systemd");

  ASSERT_TRUE(service_.disable().ok());
  EXPECT_FALSE(fs_.exists(paths_.unitPath));
  EXPECT_FALSE(fs_.exists(paths_.autostartPath));
  EXPECT_EQ(service_.status().inUse, "none");
  EXPECT_TRUE(service_.disable().ok());  // twice is fine
}

TEST_F(UserServiceTest, WithoutAWorkingManagerTheAutostartEntryServes) {
  manager_.enableFails = Status::Unavailable("systemctl --user enable failed: no bus");
  Status enabled = service_.enable({"/usr/bin/klipora", ""});
  EXPECT_EQ(enabled.code(), Status::Code::kUnavailable);
  EXPECT_TRUE(fs_.exists(paths_.autostartPath));
  EXPECT_EQ(service_.status().inUse, "autostart");

  ASSERT_TRUE(fs_.createDirectories("/home/bob").ok());
  fs_.setReadOnlyDirectory("/home/bob", true);
  EXPECT_FALSE(UserService(fs_, manager_, userServicePaths(nullptr, "/home/bob"))
                   .enable({"/usr/bin/klipora", ""})
                   .ok());
  EXPECT_FALSE(UserService(fs_, manager_, {}).enable({"/usr/bin/klipora", ""}).ok());
}

}  // namespace
}  // namespace klipora::app
