// The watcher on real files: names that look like screenshots but are not
// regular files (a named pipe, a socket, a device, a folder, a link loop)
// are looked at without ever being opened, and do not stop the real
// screenshot beside them. Events come by hand; the files are real.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "ingestion/ingestion_watcher.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/fake_folder_watch.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::ingestion {
namespace {

using Kind = FolderWatchEvent::Kind;
namespace fs = std::filesystem;

class IngestionWatcherOnDiskTest : public ::testing::Test {
 protected:
  IngestionWatcherOnDiskTest() {
    fs::create_directories(inbox_);
    files_.beforeCall(testing::FaultInjectingFileSystem::Op::kRead,
                      [this](const std::string& path) { opened_.push_back(path); });
    watcher_.onNewFile = [this](const std::string& path, auto, auto) {
      handedOff_.push_back(path);
    };
    watcher_.reloadFolders({{UUID::Random(), inbox_, false, false}});
  }

  testing::TempDir dir_;
  std::string inbox_ = fs::canonical(dir_.path()).string() + "/inbox";
  // Files are born at the real time; the watcher's clock starts there.
  testing::ManualClock clock_{Date::fromSecondsSince1970(static_cast<double>(::time(nullptr)))};
  PosixFileSystem posix_;
  testing::FaultInjectingFileSystem files_{posix_};
  testing::FakeFolderWatch folderWatch_;
  testing::ScopedLogCapture log_;
  IngestionWatcher watcher_{{folderWatch_, files_, clock_, clock_}, dir_.file("Library")};
  std::vector<std::string> opened_;
  std::vector<std::string> handedOff_;
};

TEST_F(IngestionWatcherOnDiskTest, NamesThatAreNotRegularFilesAreNeverOpened) {
  const std::string pipe = inbox_ + "/Screenshot_20240501_102030.png";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);

  const std::string socketPath = inbox_ + "/socket.png";
  int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socketPath.c_str());
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

  // A device node where this user may make one; a link to one otherwise.
  const std::string device = inbox_ + "/device.png";
  if (::mknod(device.c_str(), S_IFCHR | 0600, ::makedev(1, 3)) != 0) {
    fs::create_symlink("/dev/null", device);
  }
  fs::create_directory(inbox_ + "/x.png");
  fs::create_symlink("loop.png", inbox_ + "/loop.png");
  fs::create_symlink(inbox_ + "/nowhere.png", inbox_ + "/dangling.png");

  const std::string shot = inbox_ + "/real.png";
  std::ofstream(shot, std::ios::binary) << testing::makeTestImage({});

  for (const char* name : {"Screenshot_20240501_102030.png", "socket.png", "device.png",
                           "loop.png", "dangling.png", "real.png"}) {
    folderWatch_.send(Kind::created, inbox_ + "/" + name);
  }
  folderWatch_.send(Kind::created, inbox_ + "/x.png", /*isDirectory=*/true);
  // Their names again, as the listing after lost events finds them.
  folderWatch_.send(Kind::overflow, "");
  clock_.advance(3);

  EXPECT_EQ(handedOff_, std::vector<std::string>{shot});
  EXPECT_EQ(opened_, (std::vector<std::string>{shot, shot}));  // its head and its tail
  EXPECT_TRUE(log_.contains("skip " + pipe + ": not a regular file"));
  EXPECT_TRUE(log_.contains("skip " + socketPath + ": not a regular file"));
  EXPECT_TRUE(log_.contains("skip loop.png: "));
  EXPECT_TRUE(log_.contains("skip dangling.png: "));
  ::close(sock);
}

}  // namespace
}  // namespace klipora::ingestion
