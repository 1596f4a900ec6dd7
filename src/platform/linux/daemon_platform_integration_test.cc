// The daemon's platform pieces for real: file locks, the Unix socket channel
// and the mount table watch. The lock contract runs against the fake too, so
// the two cannot drift apart.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "platform/linux/flock_process_locks.h"
#include "platform/linux/main_loop.h"
#include "platform/linux/proc_mount_info_watch.h"
#include "platform/linux/unix_socket_control_channel.h"
#include "platform/testing/fake_daemon_platform.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

template <typename Locks>
class ProcessLocksContract : public ::testing::Test {
 protected:
  testing::TempDir dir_;
  Locks locks_;
};
using LockImplementations = ::testing::Types<FlockProcessLocks, testing::FakeProcessLocks>;
TYPED_TEST_SUITE(ProcessLocksContract, LockImplementations);

TYPED_TEST(ProcessLocksContract, OneHolderAtATimeAndItsTextIsReadable) {
  std::string path = this->dir_.file("daemon.lock");
  EXPECT_EQ(this->locks_.currentHolder(path).error().code(), Status::Code::kNotFound);
  auto held = this->locks_.tryLock(path, "first");
  ASSERT_TRUE(held) << held.error().message();
  auto second = this->locks_.tryLock(path, "second");
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().code(), Status::Code::kAlreadyExists);
  EXPECT_EQ(second.error().message(), "first");
  ASSERT_TRUE((*held)->setHolderInfo("first, reachable").ok());
  EXPECT_EQ(*this->locks_.currentHolder(path), "first, reachable");
  held->reset();
  EXPECT_EQ(this->locks_.currentHolder(path).error().code(), Status::Code::kNotFound);
  EXPECT_TRUE(this->locks_.tryLock(path, "again"));
}

class ControlChannelTest : public ::testing::Test {
 protected:
  // Runs `client` on its own thread while the main loop serves it.
  void serve(std::function<void()> client) {
    std::thread t([&] {
      client();
      loop_.post([this] { loop_.stop(); });
    });
    loop_.run();
    t.join();
  }
  ControlChannelTest() { ::mkdir(dir_.file("run").c_str(), 0755); }
  std::string address() { return dir_.file("run/klipora/test.sock"); }

  testing::TempDir dir_;
  AsioMainLoop loop_;
  UnixSocketControlServer server_{loop_.context()};
  UnixSocketControlClient client_;
};

TEST_F(ControlChannelTest, RequestsAreAnsweredInOrderEvenWhenAnsweredLate) {
  std::vector<ControlChannelServer::Reply> held;
  ASSERT_TRUE(server_.listen(address(), [&](const std::string& request, auto reply) {
    if (request == "slow") {
      held.push_back(reply);  // answered after the fast one
      return;
    }
    reply("re:" + request);
    for (auto& r : held) r("re:slow");
  }).ok());
  struct stat st{};
  ASSERT_EQ(::stat(address().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_EQ(::stat(dir_.file("run/klipora").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);

  std::string received;
  serve([&] {
    EXPECT_EQ(*client_.request(address(), "hello", 10), "re:hello");
    int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un sa{};
    sa.sun_family = AF_UNIX;
    address().copy(sa.sun_path, address().size());
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 0);
    std::string both = "slow\nfast\n";
    ASSERT_EQ(::write(fd, both.data(), both.size()), static_cast<ssize_t>(both.size()));
    char buf[64];
    while (received.size() < 16) {
      ssize_t n = ::read(fd, buf, sizeof buf);
      if (n <= 0) break;
      received.append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
  });
  EXPECT_EQ(received, "re:slow\nre:fast\n");
}

TEST_F(ControlChannelTest, NobodyListeningIsUnavailableAndHugeRequestsAreRefused) {
  EXPECT_EQ(client_.request(address(), "hello", 1).error().code(), Status::Code::kUnavailable);
  ASSERT_TRUE(server_.listen(address(), [](const std::string&, auto reply) { reply("ok"); }).ok());
  serve([&] {
    std::string huge(ControlChannelServer::kMaxLineBytes + 10, 'x');
    auto reply = client_.request(address(), huge, 10);
    ASSERT_TRUE(reply) << reply.error().message();
    EXPECT_EQ(*reply, R"({"ok":false,"error":"request too long"})");
  });
  server_.close();
  EXPECT_FALSE(::access(address().c_str(), F_OK) == 0);
  EXPECT_EQ(client_.request(address(), "hello", 1).error().code(), Status::Code::kUnavailable);
}

TEST(ProcMountInfoWatchTest, StartsAndStopsOnTheRealMountTable) {
  AsioMainLoop loop;
  ProcMountInfoWatch watch(loop);
  ASSERT_TRUE(watch.start([] {}).ok());
  EXPECT_EQ(watch.start([] {}).code(), Status::Code::kFailedPrecondition);
  watch.stop();
  watch.stop();
  ProcMountInfoWatch missing(loop, "/proc/self/no-such-table");
  EXPECT_FALSE(missing.start([] {}).ok());
}

}  // namespace
}  // namespace klipora
