// The session watch on a real message bus: a private dbus-daemon in a scratch
// folder, on which the test plays logind and sends what logind sends when a
// screen locks and unlocks and a machine sleeps and wakes. Nothing sleeps:
// each wait ends with the signal it waits for, bounded only against a hang.
#include <fcntl.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <thread>

#include "platform/linux/logind_session_watch.h"
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

constexpr char kSession[] = "/org/freedesktop/login1/session/_32";
constexpr char kOtherSession[] = "/org/freedesktop/login1/session/_35";  // another user's
constexpr char kOwnSession[] = "/org/freedesktop/login1/session/_37";    // XDG_SESSION_ID=7
constexpr char kUser[] = "/org/freedesktop/login1/user/_1000";

constexpr char kLogindInterfaces[] = R"xml(<node>
  <interface name="org.freedesktop.login1.Manager">
    <method name="GetSession"><arg type="s" direction="in"/><arg type="o" direction="out"/></method>
    <method name="GetSessionByPID"><arg type="u" direction="in"/><arg type="o" direction="out"/></method>
    <method name="GetUser"><arg type="u" direction="in"/><arg type="o" direction="out"/></method>
  </interface>
  <interface name="org.freedesktop.login1.User">
    <property name="Display" type="(so)" access="read"/>
  </interface>
</node>)xml";

// logind's manager and the user's object, answering on a thread of their
// own (the watch asks them while it starts and at each session signal).
// The process is in no session; the user's display session can change.
class LogindObjects {
 public:
  explicit LogindObjects(GDBusConnection* connection) : connection_(connection) {
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kLogindInterfaces, nullptr);
    static const GDBusInterfaceVTable kManager{&OnMethod, nullptr, nullptr, {}};
    static const GDBusInterfaceVTable kUserObject{nullptr, &OnProperty, nullptr, {}};
    ids_.push_back(g_dbus_connection_register_object(connection, "/org/freedesktop/login1",
                                                     node->interfaces[0], &kManager, this, nullptr,
                                                     nullptr));
    ids_.push_back(g_dbus_connection_register_object(connection, kUser, node->interfaces[1],
                                                     &kUserObject, this, nullptr, nullptr));
    g_dbus_node_info_unref(node);
    g_main_context_pop_thread_default(context_);
    thread_ = std::thread([this] {
      g_main_context_push_thread_default(context_);
      while (!stopping_.load()) g_main_context_iteration(context_, TRUE);
      g_main_context_pop_thread_default(context_);
    });
  }
  ~LogindObjects() {
    for (unsigned id : ids_) g_dbus_connection_unregister_object(connection_, id);
    stopping_.store(true);
    g_main_context_wakeup(context_);
    thread_.join();
    g_main_context_unref(context_);
  }
  void setDisplay(const std::string& path) {
    std::lock_guard lock(mutex_);
    display_ = path;
  }

 private:
  static void OnMethod(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                       const gchar* method, GVariant* parameters, GDBusMethodInvocation* invocation,
                       gpointer) {
    const std::string name = method;
    if (name == "GetSession") {
      const gchar* id = nullptr;
      g_variant_get(parameters, "(&s)", &id);
      if (g_strcmp0(id, "7") == 0) {
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", kOwnSession));
        return;
      }
      g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.login1.NoSuchSession",
                                                 "No session by that ID");
    } else if (name == "GetSessionByPID") {
      g_dbus_method_invocation_return_dbus_error(invocation,
                                                 "org.freedesktop.login1.NoSessionForPID",
                                                 "PID does not belong to any session");
    } else {
      g_dbus_method_invocation_return_value(invocation, g_variant_new("(o)", kUser));
    }
  }
  static GVariant* OnProperty(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                              const gchar*, GError**, gpointer data) {
    auto* self = static_cast<LogindObjects*>(data);
    std::lock_guard lock(self->mutex_);
    return g_variant_new("(so)", "", self->display_.c_str());
  }

  GDBusConnection* connection_;
  GMainContext* context_ = nullptr;
  std::vector<unsigned> ids_;
  std::atomic<bool> stopping_{false};
  std::thread thread_;
  std::mutex mutex_;
  std::string display_ = kSession;
};

class PrivateBus {
 public:
  explicit PrivateBus(const testing::TempDir& dir) {
    const std::string config = dir.file("bus.conf");
    std::ofstream(config) << "<busconfig><type>session</type><listen>unix:path=" << dir.file("bus")
                          << "</listen><auth>EXTERNAL</auth>"
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
    objects_.reset();
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
        "RequestName", g_variant_new("(su)", "org.freedesktop.login1", 0u), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr, &error);
    ASSERT_TRUE(reply) << error->message;
    g_variant_unref(reply);
    objects_ = std::make_unique<LogindObjects>(logind_);
  }
  LogindObjects& objects() { return *objects_; }
  void send(const char* path, const char* interface, const char* member, GVariant* parameters) {
    GError* error = nullptr;
    ASSERT_TRUE(g_dbus_connection_emit_signal(logind_, nullptr, path, interface, member, parameters,
                                              &error))
        << error->message;
    ASSERT_TRUE(g_dbus_connection_flush_sync(logind_, nullptr, nullptr));
  }
  void lockedHint(bool locked, const char* session = kSession,
                  const char* interface = "org.freedesktop.login1.Session") {
    GVariantBuilder changed;
    g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&changed, "{sv}", "LockedHint", g_variant_new_boolean(locked));
    send(session, "org.freedesktop.DBus.Properties", "PropertiesChanged",
         g_variant_new("(sa{sv}as)", interface, &changed, nullptr));
  }
  void prepareForSleep(bool sleeping) {
    send("/org/freedesktop/login1", "org.freedesktop.login1.Manager", "PrepareForSleep",
         g_variant_new("(b)", sleeping));
  }

 private:
  pid_t pid_ = -1;
  std::string address_;
  GDBusConnection* logind_ = nullptr;
  std::unique_ptr<LogindObjects> objects_;
};

TEST(LogindSessionWatchTest, OwnSessionsUnlockAndWakeCountAndNothingElseDoes) {
  if (std::system("command -v dbus-daemon >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "dbus-daemon is not installed (make setup installs it)";
  }
  testing::TempDir dir;
  PrivateBus bus(dir);
  ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
  Recorder recorder;
  auto record = [&](SessionReturn what) { recorder.add(what); };

  LogindSessionWatch early(recorder, bus.address(), "");
  Status absent = early.start(record);
  EXPECT_EQ(absent.code(), Status::Code::kUnavailable);
  EXPECT_NE(absent.message().find("logind is not running"), std::string::npos) << absent.message();
  LogindSessionWatch nowhere(recorder, "unix:path=" + dir.file("no-bus"), "");
  EXPECT_EQ(nowhere.start(record).code(), Status::Code::kUnavailable);

  bus.becomeLogind();
  // A daemon of the user's service manager, in no session: the user's
  // display session counts. One started inside session 7 counts only that.
  LogindSessionWatch watch(recorder, bus.address(), "");
  ASSERT_TRUE(watch.start(record).ok());
  Recorder insideRecorder;
  LogindSessionWatch inside(insideRecorder, bus.address(), "7");
  ASSERT_TRUE(inside.start([&](SessionReturn what) { insideRecorder.add(what); }).ok());

  // Going away is not coming back; nor is another object's LockedHint, nor
  // another user's unlock.
  bus.prepareForSleep(true);
  bus.lockedHint(true);
  bus.lockedHint(false, kSession, "org.freedesktop.login1.User");
  bus.lockedHint(false, kOtherSession);
  bus.send(kOtherSession, "org.freedesktop.login1.Session", "Unlock", nullptr);
  // The lock screen lets the user in, `loginctl unlock-session`, a wake-up.
  bus.lockedHint(false);
  bus.send(kSession, "org.freedesktop.login1.Session", "Unlock", nullptr);
  bus.prepareForSleep(false);
  // Session 7's own unlock.
  bus.send(kOwnSession, "org.freedesktop.login1.Session", "Unlock", nullptr);
  EXPECT_EQ(recorder.waitFor(3),
            (std::vector<SessionReturn>{SessionReturn::unlocked, SessionReturn::unlocked,
                                        SessionReturn::resumed}));
  EXPECT_EQ(insideRecorder.waitFor(2),
            (std::vector<SessionReturn>{SessionReturn::resumed, SessionReturn::unlocked}));

  // The user logs in again: the new display session is followed, the old
  // one is not.
  bus.objects().setDisplay(kOtherSession);
  bus.lockedHint(false, kSession);
  bus.lockedHint(false, kOtherSession);
  bus.prepareForSleep(false);
  EXPECT_EQ(recorder.waitFor(5),
            (std::vector<SessionReturn>{SessionReturn::unlocked, SessionReturn::unlocked,
                                        SessionReturn::resumed, SessionReturn::unlocked,
                                        SessionReturn::resumed}));
  watch.stop();
  watch.stop();
  inside.stop();
}

}  // namespace
}  // namespace klipora
