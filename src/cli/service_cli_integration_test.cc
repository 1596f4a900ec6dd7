// Klipora as a user service: the unit and autostart entry that `klipora
// service` writes, the daemon's messages to the service manager, and a
// service manager's stop.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <thread>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/fake_model_server.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::DaemonProcess;
using testing::runKlipora;

class ServiceCliTest : public ::testing::Test {
 protected:
  ServiceCliTest() {
    fs::create_directories(runtime_);
    fs::create_directories(user_);
  }
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return runKlipora(home_, args,
                      "HOME=" + testing::shellQuote(user_) + " XDG_CONFIG_HOME= XDG_RUNTIME_DIR=" +
                          testing::shellQuote(runtime_));
  }
  std::string read(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string user_ = dir_.file("user");
  std::string runtime_ = dir_.file("rt");  // no systemd user instance here
};

TEST_F(ServiceCliTest, EnableWritesAUnitThatStartsAtTheNextLogIn) {
  auto enabled = klipora({"service", "enable"});
  ASSERT_EQ(enabled.exitCode, 0) << enabled.err;
  const std::string unit = user_ + "/.config/systemd/user/klipora.service";
  const std::string link = user_ + "/.config/systemd/user/default.target.wants/klipora.service";
  const std::string entry = user_ + "/.config/autostart/klipora.desktop";
  EXPECT_NE(read(unit).find("ExecStart=" + std::string(KLIPORA_BINARY) + " --home " + home_ +
                            " run\n"),
            std::string::npos)
      << read(unit);
  EXPECT_EQ(fs::read_symlink(link), unit);
  EXPECT_NE(read(entry).find("run --quiet --login"), std::string::npos);
  json status = json::parse(klipora({"service", "status", "--json"}).out);
  EXPECT_EQ(status["inUse"], "autostart");
  EXPECT_EQ(status["unit"]["enabled"], true);
  EXPECT_EQ(status["unit"]["managerRunning"], false);

  // The unit as systemd reads it, where this machine has the tool.
  if (std::system("command -v systemd-analyze >/dev/null") == 0) {
    // The manual page is not installed here; the package test checks it.
    std::string command =
        "systemd-analyze verify --man=no " + testing::shellQuote(unit) + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    std::string said;
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof buf, pipe)) said.append(buf, n);
    EXPECT_EQ(pclose(pipe), 0) << said;
  }

  auto disabled = klipora({"service", "disable"});
  ASSERT_EQ(disabled.exitCode, 0) << disabled.err;
  EXPECT_FALSE(fs::exists(unit) || fs::is_symlink(link) || fs::exists(entry));
  EXPECT_EQ(json::parse(klipora({"service", "status", "--json"}).out)["inUse"], "none");
}

// A datagram socket standing in for the service manager's notify socket.
class NotifySocket {
 public:
  explicit NotifySocket(const std::string& path) : path_(path) {
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  ~NotifySocket() { ::close(fd_); }
  // The next message, or "" after 60 s.
  std::string next() {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, 60'000) <= 0) return "";
    char buf[512];
    ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
  }

 private:
  std::string path_;
  int fd_ = -1;
};

TEST_F(ServiceCliTest, TheDaemonSaysReadyAndStoppingAndStopsQuicklyOnSigterm) {
  NotifySocket manager(dir_.file("notify"));
  DaemonProcess daemon(home_, runtime_, {{"NOTIFY_SOCKET", dir_.file("notify")}});
  EXPECT_EQ(manager.next().substr(0, 8), "READY=1\n");
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();

  // A second start at log-in steps aside.
  auto second = runKlipora(home_, {"run", "--login"}, "XDG_RUNTIME_DIR=" + runtime_);
  EXPECT_EQ(second.exitCode, 0) << second.err;
  EXPECT_NE(second.out.find("already running"), std::string::npos);

  // Busy with text recognition when the stop comes.
  std::vector<std::string> args = {"import"};
  for (int i = 0; i < 12; ++i) {
    testing::TextImageOptions o;
    o.width = 1400;
    o.height = 900;
    o.patches.push_back({.text = "Quarterly report page " + std::to_string(i) +
                                 "\nRevenue grew in every region\nCosts stayed flat"});
    args.push_back(dir_.file("page" + std::to_string(i) + ".png"));
    std::ofstream(args.back(), std::ios::binary) << testing::makeTextImage(o);
  }
  auto imported = runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_);
  ASSERT_EQ(imported.exitCode, 0) << imported.err;

  auto start = std::chrono::steady_clock::now();
  daemon.signal(SIGTERM);
  EXPECT_EQ(manager.next(), "STOPPING=1");
  EXPECT_EQ(daemon.wait(), 0) << daemon.errors();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << "stopped " << seconds << " s after SIGTERM\n";
  EXPECT_LT(seconds, 5.0);
  EXPECT_NE(daemon.output().find("Klipora stopped."), std::string::npos);
  // Everything imported was saved.
  auto listed = runKlipora(home_, {"list", "--json"});
  EXPECT_EQ(json::parse(listed.out).size(), 12u);
}

TEST_F(ServiceCliTest, AStopDoesNotWaitForAModelServerThatDoesNotAnswer) {
  testing::FakeModelServer server;
  server.setScript([](const testing::FakeModelRequest& r) {
    if (r.path.ends_with("/models")) return testing::FakeModelServer::modelsReply({"m"});
    return testing::FakeModelReply::never();
  });
  ASSERT_EQ(runKlipora(home_, {"model", "use", server.baseURL()}).exitCode, 0);
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  testing::TextImageOptions o;
  o.width = 700;
  o.height = 200;
  o.patches.push_back({.text = "Invoice 2041\nTotal due 120.00 EUR"});
  const std::string image = dir_.file("invoice.png");
  std::ofstream(image, std::ios::binary) << testing::makeTextImage(o);
  auto imported = runKlipora(home_, {"import", image}, "XDG_RUNTIME_DIR=" + runtime_);
  ASSERT_EQ(imported.exitCode, 0) << imported.err;
  // The daemon waits for the model's answer (it would for 20 s)...
  for (int i = 0; i < 600 && server.chatRequests().empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  ASSERT_FALSE(server.chatRequests().empty()) << daemon.errors();

  // ...and a stop ends that request instead.
  auto start = std::chrono::steady_clock::now();
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0) << daemon.errors();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::cout << "stopped " << seconds << " s after SIGTERM with a model request under way\n";
  EXPECT_LT(seconds, 5.0);
  EXPECT_EQ(json::parse(runKlipora(home_, {"list", "--json"}).out).size(), 1u);
}

}  // namespace
}  // namespace klipora
