// The inotify folder watch on real folders, read on a real io_context.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <utility>

#include "platform/linux/inotify_folder_watch.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Code = Status::Code;

class InotifyFolderWatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir(path("inbox").c_str(), 0755) | ::mkdir(path("other").c_str(), 0755), 0);
    watch_->setHandler([this](const FolderWatchEvent& e) { record(e); });
    inboxId_ = *watch_->add(path("inbox"));
    ASSERT_TRUE(watch_->add(path("other")));
  }

  std::string path(const std::string& name) { return dir_.file(name); }
  void write(const std::string& name) {
    int fd = ::open(path(name).c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_EQ(::write(fd, "png", 3), 3) << name;
    ::close(fd);
  }
  // "closedWrite inbox/a.png"; a trailing "/" marks a folder.
  void record(const FolderWatchEvent& e) {
    static const char* kKinds[] = {"created",  "modified", "closedWrite", "movedIn",
                                   "movedOut", "deleted",  "folderGone",  "overflow"};
    std::string name = e.path.empty() ? "" : e.path.substr(dir_.path().size() + 1);
    seen_.push_back(std::string(kKinds[int(e.kind)]) + " " + name + (e.isDirectory ? "/" : ""));
  }
  // Runs the loop until `done`; the bound only turns a lost event into a failure.
  bool runUntil(const std::function<bool()>& done) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      context_.restart();
      context_.run_one_for(std::chrono::milliseconds(100));
    }
    return true;
  }
  // The events so far. One instance reports in order, so once a marker made
  // now has arrived, every earlier event has too.
  std::vector<std::string> settle() {
    std::string marker = "other/marker" + std::to_string(markers_++);
    EXPECT_EQ(::mkdir(path(marker).c_str(), 0755), 0);
    EXPECT_TRUE(runUntil([&] { return std::erase(seen_, "created " + marker + "/") > 0; }));
    return std::exchange(seen_, {});
  }

  asio::io_context context_;
  testing::TempDir dir_;
  std::unique_ptr<InotifyFolderWatch> watch_ = std::make_unique<InotifyFolderWatch>(context_);
  FolderWatch::WatchId inboxId_ = 0;
  std::vector<std::string> seen_;
  int markers_ = 0;
};

TEST_F(InotifyFolderWatchTest, ReportsWritesRenamesLinksAndSubfoldersInOrder) {
  write("inbox/a.png");
  write("inbox/.b.tmp");
  ASSERT_EQ(::rename(path("inbox/.b.tmp").c_str(), path("inbox/b.png").c_str()), 0);
  ASSERT_EQ(::rename(path("inbox/b.png").c_str(), path("other/b.png").c_str()), 0);
  write("c.png");
  ASSERT_EQ(::link(path("c.png").c_str(), path("inbox/c.png").c_str()), 0);
  ASSERT_EQ(::unlink(path("inbox/a.png").c_str()), 0);
  ASSERT_EQ(::mkdir(path("inbox/sub").c_str(), 0755), 0);
  write("inbox/sub/d.png");  // the subfolder is not watched
  EXPECT_THAT(settle(),
              ElementsAre("created inbox/a.png", "modified inbox/a.png", "closedWrite inbox/a.png",
                          "created inbox/.b.tmp", "modified inbox/.b.tmp",
                          "closedWrite inbox/.b.tmp", "movedOut inbox/.b.tmp",
                          "movedIn inbox/b.png", "movedOut inbox/b.png", "movedIn other/b.png",
                          "created inbox/c.png", "deleted inbox/a.png", "created inbox/sub/"));
}

TEST_F(InotifyFolderWatchTest, AFolderDeletedOrMovedAwayIsGoneOnce) {
  ASSERT_EQ(::mkdir(path("moving").c_str(), 0755), 0);
  ASSERT_TRUE(watch_->add(path("moving")));
  ASSERT_EQ(::rmdir(path("inbox").c_str()) | ::mkdir(path("inbox").c_str(), 0755), 0);
  write("inbox/late.png");
  ASSERT_EQ(::rename(path("moving").c_str(), path("moved").c_str()), 0);
  write("moved/late.png");
  EXPECT_THAT(settle(), ElementsAre("folderGone inbox/", "folderGone moving/"));

  auto again = watch_->add(path("inbox"));
  ASSERT_TRUE(again);
  EXPECT_NE(*again, inboxId_);
  write("inbox/new.png");
  EXPECT_EQ(settle().size(), 3u);
}

TEST_F(InotifyFolderWatchTest, AddAndRemoveWorkFromTheHandlerAndRemovalIsFinal) {
  EXPECT_EQ(*watch_->add(path("inbox/")), inboxId_);
  write("inbox/queued.png");  // queued in the kernel, not read yet
  watch_->remove(inboxId_);
  watch_->remove(inboxId_);
  write("inbox/after.png");
  EXPECT_THAT(settle(), IsEmpty());

  // Watches the subfolders it is told of; ends the inbox's watch at its first event.
  FolderWatch::WatchId id = *watch_->add(path("inbox"));
  watch_->setHandler([&](const FolderWatchEvent& e) {
    record(e);
    if (e.isDirectory) {
      EXPECT_TRUE(watch_->add(e.path).has_value());
    }
    watch_->remove(id);
  });
  ASSERT_EQ(::mkdir(path("inbox/sub").c_str(), 0755), 0);
  write("inbox/burst.png");
  ASSERT_TRUE(runUntil([&] { return seen_.size() == 1; }));
  write("inbox/sub/e.png");
  EXPECT_THAT(settle(), ElementsAre("created inbox/sub/", "created inbox/sub/e.png",
                                    "modified inbox/sub/e.png", "closedWrite inbox/sub/e.png"));
}

TEST_F(InotifyFolderWatchTest, AddSaysWhyAFolderCannotBeWatched) {
  auto missing = watch_->add(path("missing"));
  EXPECT_EQ(missing.error().code(), Code::kNotFound);
  EXPECT_NE(missing.error().message().find(path("missing")), std::string::npos);
  write("file.png");
  EXPECT_EQ(watch_->add(path("file.png")).error().code(), Code::kInvalidArgument);

  // Root may read any folder, so a child tries as an ordinary user.
  ASSERT_EQ(::mkdir(path("locked").c_str(), 0), 0);
  pid_t child = ::fork();
  if (child == 0) {
    if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
    asio::io_context context;
    auto added = InotifyFolderWatch(context).add(path("locked"));
    ::_exit(!added && added.error().code() == Code::kPermissionDenied ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "cannot become an ordinary user here";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(InotifyFolderWatchTest, LostEventsAreReportedAsOverflow) {
  // An instance takes its queue length when it is made; shrink it for one.
  const char* kSetting = "/proc/sys/fs/inotify/max_queued_events";
  auto set = [&](const std::string& value) {
    return bool(std::ofstream(kSetting) << value << std::flush);
  };
  std::string saved;
  std::ifstream(kSetting) >> saved;
  if (saved.empty() || !set("4")) GTEST_SKIP() << "cannot change " << kSetting;
  InotifyFolderWatch small(context_);
  ASSERT_TRUE(set(saved));
  small.setHandler([this](const FolderWatchEvent& e) { record(e); });
  ASSERT_TRUE(small.add(path("inbox")));
  for (const char* name : {"inbox/1.png", "inbox/2.png"}) write(name);
  EXPECT_TRUE(runUntil([&] { return std::erase(seen_, "overflow ") > 0; }));
}

TEST_F(InotifyFolderWatchTest, DestroyingTheWatchLeavesTheLoopSafe) {
  int calls = 0;
  watch_->setHandler([&](const FolderWatchEvent&) {
    ++calls;
    watch_.reset();  // at the first of three events read together
  });
  write("inbox/a.png");
  ASSERT_TRUE(runUntil([&] { return !watch_; }));

  watch_ = std::make_unique<InotifyFolderWatch>(context_);
  watch_->setHandler([&](const FolderWatchEvent&) { ++calls; });
  ASSERT_TRUE(watch_->add(path("inbox")));
  write("inbox/b.png");
  watch_.reset();  // with its wait pending and events ready
  context_.restart();
  context_.run();  // returns once the cancelled wait is gone
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace klipora
