#include "platform/linux/logind_session_watch.h"

#include <gio/gio.h>
#include <unistd.h>

#include "platform/log.h"

namespace klipora {
namespace {

constexpr char kLogind[] = "org.freedesktop.login1";
constexpr char kSessionInterface[] = "org.freedesktop.login1.Session";
constexpr char kManagerInterface[] = "org.freedesktop.login1.Manager";
constexpr char kManagerPath[] = "/org/freedesktop/login1";
constexpr int kBusCallTimeoutMs = 5000;

std::string Consume(GError* error) {
  std::string message = error ? error->message : "unknown error";
  if (error) g_error_free(error);
  return message;
}

// The object path logind answers `method` of its manager with; empty when
// it answers with an error (no such session, a process in no session).
std::string AskForPath(GDBusConnection* connection, const char* method, GVariant* arguments) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      connection, kLogind, kManagerPath, kManagerInterface, method, arguments,
      G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, kBusCallTimeoutMs, nullptr, &error);
  if (!reply) {
    g_clear_error(&error);
    return {};
  }
  const gchar* path = nullptr;
  g_variant_get(reply, "(&o)", &path);
  std::string out = path;
  g_variant_unref(reply);
  return out;
}

}  // namespace

struct LogindSessionWatch::Listener {
  Listener(Executor& loop, std::function<void(SessionReturn)> onReturn)
      : mainLoop(loop), returned(std::move(onReturn)) {}

  Executor& mainLoop;
  std::function<void(SessionReturn)> returned;
  // Shared with posted calls, so a stop() wins over posts in flight.
  std::shared_ptr<std::atomic<bool>> active = std::make_shared<std::atomic<bool>>(true);
  GDBusConnection* connection = nullptr;
  std::string ownSession;  // the object path of the process's own session
  std::string user;        // else the user's, whose display session counts

  // Whether a signal of the session at `path` is about this desktop's user.
  bool counts(const gchar* path) const {
    if (!ownSession.empty()) return ownSession == path;
    if (user.empty()) return false;
    GVariant* reply = g_dbus_connection_call_sync(
        connection, kLogind, user.c_str(), "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.freedesktop.login1.User", "Display"), G_VARIANT_TYPE("(v)"),
        G_DBUS_CALL_FLAGS_NONE, kBusCallTimeoutMs, nullptr, nullptr);
    if (!reply) return false;
    GVariant* display = nullptr;
    g_variant_get(reply, "(v)", &display);
    bool same = false;
    if (g_variant_is_of_type(display, G_VARIANT_TYPE("(so)"))) {
      const gchar* displayPath = nullptr;
      g_variant_get(display, "(&s&o)", nullptr, &displayPath);
      same = g_strcmp0(displayPath, path) == 0;
    }
    g_variant_unref(display);
    g_variant_unref(reply);
    return same;
  }

  void report(SessionReturn what) {
    mainLoop.post([active = active, returned = returned, what] {
      if (active->load()) returned(what);
    });
  }

  // Runs on the bus thread, for every signal subscribed to.
  static void OnSignal(GDBusConnection*, const gchar*, const gchar* path, const gchar* interface,
                       const gchar* signal, GVariant* parameters, gpointer data) {
    auto* self = static_cast<Listener*>(data);
    const std::string name = signal;
    if (name == "Unlock") {
      if (self->counts(path)) self->report(SessionReturn::unlocked);
    } else if (name == "PrepareForSleep") {
      gboolean goingToSleep = TRUE;
      if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(b)"))) {
        g_variant_get(parameters, "(b)", &goingToSleep);
      }
      if (!goingToSleep) self->report(SessionReturn::resumed);
    } else if (name == "PropertiesChanged" &&
               g_strcmp0(interface, "org.freedesktop.DBus.Properties") == 0 &&
               g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)"))) {
      const gchar* changedInterface = nullptr;
      GVariant* changed = nullptr;
      g_variant_get(parameters, "(&s@a{sv}@as)", &changedInterface, &changed, nullptr);
      gboolean locked = TRUE;
      if (g_strcmp0(changedInterface, kSessionInterface) == 0 &&
          g_variant_lookup(changed, "LockedHint", "b", &locked) && !locked && self->counts(path)) {
        self->report(SessionReturn::unlocked);
      }
      g_variant_unref(changed);
    }
  }
};

LogindSessionWatch::LogindSessionWatch(Executor& mainLoop, std::string busAddress,
                                       std::string sessionID)
    : mainLoop_(mainLoop), busAddress_(std::move(busAddress)), sessionID_(std::move(sessionID)) {}

LogindSessionWatch::~LogindSessionWatch() { stop(); }

Status LogindSessionWatch::start(std::function<void(SessionReturn)> returned) {
  if (connection_) return Status::FailedPrecondition("session watch already started");
  GError* error = nullptr;
  std::string address = busAddress_;
  if (address.empty()) {
    gchar* system = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!system) return Status::Unavailable("no system bus: " + Consume(error));
    address = system;
    g_free(system);
  }
  connection_ = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!connection_) {
    return Status::Unavailable("cannot reach the bus at " + address + ": " + Consume(error));
  }
  g_dbus_connection_set_exit_on_close(connection_, FALSE);

  // Callbacks of subscriptions made with a thread-default context run in
  // that context, which the watch's thread alone iterates.
  listener_ = std::make_unique<Listener>(mainLoop_, std::move(returned));
  listener_->connection = connection_;
  listener_->ownSession =
      sessionID_.empty()
          ? AskForPath(connection_, "GetSessionByPID",
                       g_variant_new("(u)", static_cast<guint32>(::getpid())))
          : AskForPath(connection_, "GetSession", g_variant_new("(s)", sessionID_.c_str()));
  if (listener_->ownSession.empty()) {
    listener_->user =
        AskForPath(connection_, "GetUser", g_variant_new("(u)", static_cast<guint32>(::getuid())));
  }
  const char* sessionPath = listener_->ownSession.empty() ? nullptr : listener_->ownSession.c_str();
  context_ = g_main_context_new();
  g_main_context_push_thread_default(context_);
  auto subscribe = [this](const char* interface, const char* member, const char* path,
                          const char* arg0) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_, kLogind, interface, member, path, arg0, G_DBUS_SIGNAL_FLAGS_NONE,
        &Listener::OnSignal, listener_.get(), nullptr));
  };
  subscribe(kSessionInterface, "Unlock", sessionPath, nullptr);
  subscribe("org.freedesktop.DBus.Properties", "PropertiesChanged", sessionPath, kSessionInterface);
  subscribe(kManagerInterface, "PrepareForSleep", kManagerPath, nullptr);
  g_main_context_pop_thread_default(context_);

  // The bus handles one connection's messages in order: once it answers this
  // question, it holds the subscriptions sent before it.
  GVariant* reply = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", kLogind), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE,
      kBusCallTimeoutMs, nullptr, &error);
  if (!reply) {
    Status s = Status::Unavailable("the bus at " + address + " does not answer: " + Consume(error));
    stop();
    return s;
  }
  gboolean present = FALSE;
  g_variant_get(reply, "(b)", &present);
  g_variant_unref(reply);
  if (!present) {
    stop();
    return Status::Unavailable("logind is not running on the bus at " + address);
  }

  if (sessionPath) {
    log::info("Session", "watching session %s for the user's return", sessionPath);
  } else if (!listener_->user.empty()) {
    log::info("Session", "in no session of its own; watching the display session of %s",
              listener_->user.c_str());
  } else {
    log::info("Session", "logind knows no session of this user; only waking from sleep counts");
  }
  stopping_ = std::make_shared<std::atomic<bool>>(false);
  thread_ = std::thread([context = context_, stopping = stopping_] {
    g_main_context_push_thread_default(context);
    while (!stopping->load()) g_main_context_iteration(context, TRUE);
    g_main_context_pop_thread_default(context);
  });
  return Status::Ok();
}

void LogindSessionWatch::stop() {
  if (listener_) listener_->active->store(false);
  if (thread_.joinable()) {
    stopping_->store(true);
    g_main_context_wakeup(context_);  // kept until the thread next waits
    thread_.join();
  }
  for (unsigned id : subscriptions_) g_dbus_connection_signal_unsubscribe(connection_, id);
  subscriptions_.clear();
  if (connection_) {
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
    connection_ = nullptr;
  }
  if (context_) {
    g_main_context_unref(context_);
    context_ = nullptr;
  }
  listener_.reset();
}

}  // namespace klipora
