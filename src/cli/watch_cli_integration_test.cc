// Watching as a user meets it: a running daemon imports and processes the
// images that appear in a folder it watches, written the ways screenshot
// tools write them, and imports nothing while the user has paused it.
// Nothing sleeps: each wait ends on a file event (inotify) that comes with
// the change it waits for, bounded only against a hang.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/linux/testing/virtual_screen.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::DaemonProcess;

// Re-checks `done` whenever something changes in one of `folders`; false
// when 60 s pass without it.
bool WaitUntil(const std::vector<std::string>& folders, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  int watch = ::inotify_init1(IN_CLOEXEC);
  for (const auto& folder : folders) {
    ::inotify_add_watch(watch, folder.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
  }
  bool ok = done();
  while (!ok) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd p{watch, POLLIN, 0};
    if (left.count() <= 0 || ::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
    char buf[4096];
    (void)::read(watch, buf, sizeof buf);
    ok = done();
  }
  ::close(watch);
  return ok;
}

class WatchCliTest : public ::testing::Test {
 protected:
  WatchCliTest() {
    fs::create_directories(runtime_);
    fs::create_directories(inbox_);
  }
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return testing::runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_);
  }
  // The id of the item imported from `file`, or empty.
  std::string itemFrom(const std::string& file) {
    json items = json::parse(klipora({"list", "--json"}).out, nullptr, false);
    if (!items.is_array()) return {};
    for (const auto& item : items) {
      if (item.value("originalFilename", "") == file) return item.value("id", "");
    }
    return {};
  }
  // Written under a temporary name and renamed into place, as most tools do.
  void save(const std::string& name, const std::string& text) {
    testing::TextImageOptions o;
    o.width = 700;
    o.height = 200;
    o.patches.push_back({.text = text});
    const std::string temp = inbox_ + "/." + name + ".part";
    std::ofstream(temp, std::ios::binary) << testing::makeTextImage(o);
    fs::rename(temp, inbox_ + "/" + name);
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string runtime_ = dir_.file("runtime");
  std::string inbox_ = dir_.file("inbox");
};

TEST_F(WatchCliTest, ImagesInAWatchedFolderAreImportedAndProcessedUnlessPaused) {
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  // The first start watches the user's screenshot folders, even those the
  // tools have not made yet.
  auto folders = klipora({"folders"});
  EXPECT_NE(folders.out.find(home_ + ".user/Pictures/Screenshots"), std::string::npos)
      << folders.out;
  ASSERT_EQ(klipora({"folders", "add", inbox_}).exitCode, 0);

  save("invoice.png", "Invoice 2291\nTotal due: $120.00");
  std::string id;
  ASSERT_TRUE(WaitUntil({home_}, [&] { return !(id = itemFrom("invoice.png")).empty(); }))
      << daemon.errors();
  auto waited = klipora({"wait", "--json", id});
  EXPECT_EQ(waited.exitCode, 0) << waited.out << waited.err;
  EXPECT_NE(klipora({"search", "invoice"}).out.find(id), std::string::npos);

  ASSERT_EQ(klipora({"pause", "indefinitely"}).out, "Screenshot watching is paused.\n");
  save("while-paused.png", "Nothing to see");
  ASSERT_TRUE(WaitUntil({dir_.path()}, [&] {
    return daemon.errors().find("skip while-paused.png — global pause active") != std::string::npos;
  })) << daemon.errors();
  ASSERT_EQ(klipora({"resume"}).exitCode, 0);
  save("after.png", "Back again");
  ASSERT_TRUE(WaitUntil({home_}, [&] { return !itemFrom("after.png").empty(); }));
  EXPECT_TRUE(itemFrom("while-paused.png").empty());

  // A named pipe with an image's name is never opened.
  ASSERT_EQ(::mkfifo((inbox_ + "/pipe.png").c_str(), 0600), 0);
  save("last.png", "The end");
  ASSERT_TRUE(WaitUntil({home_}, [&] { return !itemFrom("last.png").empty(); }));
  EXPECT_TRUE(itemFrom("pipe.png").empty());
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(WatchCliTest, AScreenshotTakenWithScrotInTheUsersScreenshotFolderIsImported) {
  testing::VirtualScreen screen;
  ASSERT_FALSE(screen.display().empty()) << "Xvfb did not start (is the xvfb package installed?)";
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  // The tools make the folder on first use; the daemon watches for it.
  const std::string folder = home_ + ".user/Pictures/Screenshots";
  fs::create_directories(folder);
  ASSERT_TRUE(WaitUntil({dir_.path()}, [&] {
    return daemon.errors().find(folder + " appeared; watching it") != std::string::npos;
  })) << daemon.errors();

  // scrot's own name ("2026-11-24-101530_1024x640_scrot.png") in a screenshot
  // folder is what makes it a screenshot.
  const std::string command =
      "cd '" + folder + "' && DISPLAY=" + screen.display() + " timeout 30 scrot";
  ASSERT_EQ(std::system(command.c_str()), 0) << "scrot failed (is the scrot package installed?)";
  std::string id;
  ASSERT_TRUE(WaitUntil({home_}, [&] {
    json items = json::parse(klipora({"list", "--json"}).out, nullptr, false);
    for (const auto& item : items.is_array() ? items : json::array()) {
      if (item.value("originalFilename", "").ends_with("_1024x640_scrot.png")) id = item["id"];
    }
    return !id.empty();
  })) << daemon.errors();
  EXPECT_EQ(klipora({"wait", id}).exitCode, 0);
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

}  // namespace
}  // namespace klipora
