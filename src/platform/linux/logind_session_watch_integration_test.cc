// The session watch on a real message bus: a private dbus-daemon in a scratch
// folder, on which the test plays logind and sends what logind sends when a
// screen locks and unlocks and a machine sleeps and wakes. Nothing sleeps:
// each wait ends with the signal it waits for, bounded only against a hang.
#include "platform/linux/logind_session_watch.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <condition_variable>
#include <fstream>
#include <mutex>

#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

// Runs posted work at once, on the bus thread, and keeps what it was told.
class Recorder final : public Executor {
 public:
  void post(std::function<void()> work) override { work(); }
  void add(SessionReturn what) {
    std::lock_guard lock(mutex_);
    seen_.push_back(what);
    changed_.notify_all();
  }
  std::vector<SessionReturn> waitFor(size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(60), [&] { return seen_.size() >= count; });
    return seen_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<SessionReturn> seen_;
};

class PrivateBus {
 public:
  explicit PrivateBus(const testing::TempDir& dir) {
    const std::string config = dir.file("bus.conf");
    std::ofstream(config) << "<busconfig><type>session</type><listen>unix:path="
                          << dir.file("bus") << "</listen><auth>EXTERNAL</auth>"
                          << "<policy context=\"default\"><allow user=\"*\"/>"
                          << "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                          << "<allow own=\"*\"/></policy></busconfig>";
    int out[2];
    EXPECT_EQ(::pipe(out), 0);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], STDOUT_FILENO);
      // Its notes (it cannot raise its file limit without privileges) are noise here.
      ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
      ::execlp("dbus-daemon", "dbus-daemon", ("--config-file=" + config).c_str(), "--nofork",
               "--print-address=1", nullptr);
      ::_exit(127);
    }
    ::close(out[1]);
    // The daemon prints its address once it listens.
    while (address_.find('\n') == std::string::npos) {
      pollfd p{out[0], POLLIN, 0};
      char buf[256];
      ssize_t n = ::poll(&p, 1, 60'000) > 0 ? ::read(out[0], buf, sizeof buf) : 0;
      if (n <= 0) break;
      address_.append(buf, static_cast<size_t>(n));
    }
    ::close(out[0]);
    if (!address_.empty()) address_.pop_back();
  }
  ~PrivateBus() {
    if (logind_) g_object_unref(logind_);
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  const std::string& address() const { return address_; }

  // Takes logind's name on the bus.
  void becomeLogind() {
    GError* error = nullptr;
    logind_ = g_dbus_connection_new_for_address_sync(
        address_.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    ASSERT_TRUE(logind_) << error->message;
    GVariant* reply = g_dbus_connection_call_sync(
        logind_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 0u),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, &error);
    ASSERT_TRUE(reply) << error->message;
    g_variant_unref(reply);
  }
  void send(const char* path, const char* interface, const char* member, GVariant* parameters) {
    GError* error = nullptr;
    ASSERT_TRUE(g_dbus_connection_emit_signal(logind_, nullptr, path, interface, member,
                                              parameters, &error))
        << error->message;
    ASSERT_TRUE(g_dbus_connection_flush_sync(logind_, nullptr, nullptr));
  }
  void lockedHint(bool locked, const char* interface = "org.freedesktop.login1.Session") {
    GVariantBuilder changed;
    g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&changed, "{sv}", "LockedHint", g_variant_new_boolean(locked));
    send("/org/freedesktop/login1/session/_32", "org.freedesktop.DBus.Properties",
         "PropertiesChanged", g_variant_new("(sa{sv}as)", interface, &changed, nullptr));
  }
  void prepareForSleep(bool sleeping) {
    send("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep",
         g_variant_new("(b)", sleeping));
  }

 private:
  pid_t pid_ = -1;
  std::string address_;
  GDBusConnection* logind_ = nullptr;
};

TEST(LogindSessionWatchTest, UnlockAndWakeCountAndNothingElseDoes) {
  if (std::system("command -v dbus-daemon >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "dbus-daemon is not installed (make setup installs it)";
  }
  testing::TempDir dir;
  PrivateBus bus(dir);
  ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
  Recorder recorder;
  auto record = [&](SessionReturn what) { recorder.add(what); };

  LogindSessionWatch early(recorder, bus.address());
  Status absent = early.start(record);
  EXPECT_EQ(absent.code(), Status::Code::kUnavailable);
  EXPECT_NE(absent.message().find("logind is not running"), std::string::npos)
      << absent.message();
  LogindSessionWatch nowhere(recorder, "unix:path=" + dir.file("no-bus"));
  EXPECT_EQ(nowhere.start(record).code(), Status::Code::kUnavailable);

  bus.becomeLogind();
  LogindSessionWatch watch(recorder, bus.address());
  ASSERT_TRUE(watch.start(record).ok());
  // Going away is not coming back; nor is another object's LockedHint.
  bus.prepareForSleep(true);
  bus.lockedHint(true);
  bus.lockedHint(false, "org.freedesktop.login1.User");
  // The lock screen lets the user in, `loginctl unlock-session`, a wake-up.
  bus.lockedHint(false);
  bus.send("/org/freedesktop/login1/session/_32", "org.freedesktop.login1.Session", "Unlock",
           nullptr);
  bus.prepareForSleep(false);
  EXPECT_EQ(recorder.waitFor(3), (std::vector<SessionReturn>{SessionReturn::unlocked,
                                                             SessionReturn::unlocked,
                                                             SessionReturn::resumed}));
  watch.stop();
  watch.stop();
}

}  // namespace
}  // namespace klipora
