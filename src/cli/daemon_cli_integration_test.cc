// `klipora run` and the commands that talk to it, as a user meets them: the
// real binary in a scratch home, real images, real signals.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/linux/unix_socket_control_channel.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::DaemonProcess;
using testing::runKlipora;

class DaemonCliTest : public ::testing::Test {
 protected:
  DaemonCliTest() { fs::create_directories(runtime_); }
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_);
  }
  json jsonOf(const std::vector<std::string>& args) {
    auto r = klipora(args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return json::parse(r.out, nullptr, false);
  }
  static std::string image(int width) {
    testing::TestImageOptions options;
    options.width = width;
    options.height = 200;
    return testing::makeTestImage(options);
  }
  std::string importImage(const std::string& name, int width) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << image(width);
    auto r = klipora({"import", path});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return r.out.substr(0, 36);
  }
  std::string sql(const std::string& statement) {
    std::string command = "sqlite3 " + testing::shellQuote(home_ + "/Klipora.store") + " " +
                          testing::shellQuote(statement);
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof buf, pipe)) out.append(buf, n);
    pclose(pipe);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
  }
  size_t filesIn(const std::string& folder) {
    size_t n = 0;
    for (const auto& e : fs::directory_iterator(home_ + "/Library/" + folder)) n += e.is_regular_file();
    return n;
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string runtime_ = dir_.file("rt");
};

TEST_F(DaemonCliTest, OneDaemonPerLibraryAndCtrlCEndsItCleanly) {
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();

  auto second = klipora({"run"});
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_NE(second.err.find("is already running on the library"), std::string::npos) << second.err;

  json status = jsonOf({"status", "--json"});
  EXPECT_TRUE(status["daemon"]["running"]);
  EXPECT_EQ(status["library"]["root"], home_ + "/Library");
  auto socket = fs::status(fs::directory_iterator(runtime_ + "/klipora")->path());
  EXPECT_EQ(socket.permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);

  daemon.signal(SIGINT);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_NE(daemon.output().find("Klipora stopped."), std::string::npos);
  EXPECT_NE(daemon.errors().find("[Klipora][Boot] AppCoordinator.stop()"), std::string::npos);
  EXPECT_FALSE(jsonOf({"status", "--json"})["daemon"]["running"]);
  EXPECT_TRUE(fs::is_empty(runtime_ + "/klipora"));  // the socket went with it
}

TEST_F(DaemonCliTest, ItemTrashedLongAgoIsGoneAfterStart) {
  std::string old = importImage("old.png", 300);
  std::string recent = importImage("recent.png", 301);
  double now = static_cast<double>(::time(nullptr));
  sql("UPDATE ScreenshotItem SET deleted = 1, deletedAt = " + std::to_string(now - 31 * 86400) +
      " WHERE id = '" + old + "'; UPDATE ScreenshotItem SET deleted = 1, deletedAt = " +
      std::to_string(now - 29 * 86400) + " WHERE id = '" + recent + "'");

  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  EXPECT_EQ(sql("SELECT id FROM ScreenshotItem"), recent);
  EXPECT_EQ(filesIn("Originals"), 1u);
  EXPECT_EQ(filesIn("Thumbnails"), 1u);
  EXPECT_EQ(sql("SELECT sourcePath FROM DeletedOriginal"), dir_.file("old.png"));
  EXPECT_NE(daemon.errors().find(
                "[Klipora][TrashRetention] Permanently removed 1 item(s) older than 30 day(s)."),
            std::string::npos);
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(DaemonCliTest, TrashAndRestoreGiveTheSameAnswerWithOrWithoutTheDaemon) {
  std::string id = importImage("a.png", 302);
  auto direct = klipora({"trash", id});
  EXPECT_EQ(direct.exitCode, 0);
  EXPECT_EQ(direct.out, id + "  moved to the trash\n");
  EXPECT_TRUE(jsonOf({"list", "--json"}).empty());
  EXPECT_EQ(klipora({"restore", id}).out, id + "  restored\n");

  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  auto viaDaemon = klipora({"trash", id});
  EXPECT_EQ(viaDaemon.out, direct.out);
  EXPECT_EQ(jsonOf({"status", "--json"})["items"]["trashed"], 1);
  EXPECT_EQ(klipora({"restore", id}).out, id + "  restored\n");
  EXPECT_EQ(klipora({"restore", id}).out, id + "  not in the trash\n");

  EXPECT_EQ(klipora({"trash", "not-an-id"}).exitCode, 2);
  auto unknown = klipora({"trash", "00000000-0000-4000-8000-000000000000"});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_NE(unknown.out.find("no such item"), std::string::npos);
  EXPECT_EQ(klipora({"delete", id}).exitCode, 2);  // asks; nobody to answer
  EXPECT_EQ(filesIn("Originals"), 1u);
  EXPECT_EQ(klipora({"delete", "--yes", id}).out, id + "  deleted for good\n");
  EXPECT_EQ(filesIn("Originals"), 0u);
  EXPECT_EQ(filesIn("Thumbnails"), 0u);
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(klipora({"empty-trash"}).out, "The trash is empty.\n");
  EXPECT_EQ(klipora({"sweep-trash"}).out, "Removed 0 item(s) older than 30 day(s) from the trash.\n");
}

TEST_F(DaemonCliTest, UnusableChosenLibraryFallsBackAndStartContinues) {
  std::ofstream(dir_.file("a-file")) << "not a folder";
  for (auto [chosen, reason] : {std::pair{dir_.file("a-file"), "notADirectory"},
                                std::pair{dir_.file("unplugged/Library"), "missing"}}) {
    ASSERT_EQ(klipora({"settings", "set", "libraryFolder", chosen}).exitCode, 0);
    DaemonProcess daemon(home_, runtime_);
    ASSERT_TRUE(daemon.waitForOutput("using the default library for this session.")) << reason;
    EXPECT_NE(daemon.errors().find("Custom library location unavailable at " + chosen),
              std::string::npos);
    json status = jsonOf({"status", "--json"});
    EXPECT_EQ(status["library"]["root"], home_ + "/Library");
    EXPECT_EQ(status["library"]["fallback"]["reason"], reason);
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 0);
  }
}

TEST_F(DaemonCliTest, SigtermDuringABurstOfImportsLosesNothing) {
  std::vector<std::string> paths;
  for (int i = 0; i < 40; ++i) {
    paths.push_back(dir_.file("burst-" + std::to_string(i) + ".png"));
    std::ofstream(paths.back(), std::ios::binary) << image(800 + i);
  }
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  int watch = ::inotify_init1(IN_CLOEXEC);
  ASSERT_GE(::inotify_add_watch(watch, (home_ + "/Library/Originals").c_str(), IN_CREATE), 0);

  std::string socket = json::parse(std::ifstream(home_ + "/daemon.lock"))["socket"];
  std::thread client([&] {
    UnixSocketControlClient channel;
    (void)channel.request(socket, json{{"command", "import"}, {"paths", paths}}.dump(), 60);
  });
  // Signal once the first copies land, with most of the burst still to come.
  for (int created = 0; created < 3;) {
    pollfd p{watch, POLLIN, 0};
    ASSERT_GT(::poll(&p, 1, 60'000), 0);
    char buf[4096];
    ssize_t n = ::read(watch, buf, sizeof buf);
    for (ssize_t off = 0; off < n;) {
      auto* e = reinterpret_cast<inotify_event*>(buf + off);
      ++created;
      off += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
    }
  }
  daemon.signal(SIGTERM);
  client.join();
  ::close(watch);
  EXPECT_EQ(daemon.wait(), 0) << daemon.errors();

  // Every copy has its record and every record its copy: nothing half-written.
  size_t rows = std::stoul(sql("SELECT count(*) FROM ScreenshotItem"));
  EXPECT_GE(rows, 3u);
  EXPECT_EQ(filesIn("Originals"), rows);
  for (const auto& e : fs::directory_iterator(home_ + "/Library/Originals")) {
    EXPECT_EQ(sql("SELECT count(*) FROM ScreenshotItem WHERE libraryPath = '" +
                  e.path().string() + "'"),
              "1");
  }
  EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
  std::cout << "imported " << rows << " of " << paths.size() << " before stopping\n";
}

}  // namespace
}  // namespace klipora
