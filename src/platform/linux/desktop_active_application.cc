#include "platform/linux/desktop_active_application.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

namespace klipora {
namespace {

using nlohmann::json;

constexpr int kTimeoutMs = 250;

// Connects to a Unix socket with send and receive time-outs; -1 on failure.
int Connect(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path) return -1;
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  timeval timeout{0, kTimeoutMs * 1000};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool WriteAll(int fd, const std::string& data) {
  size_t sent = 0;
  while (sent < data.size()) {
    ssize_t n = ::write(fd, data.data() + sent, data.size() - sent);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// Reads until `want` bytes (or the end when `want` is 0); empty on failure.
std::string Read(int fd, size_t want) {
  std::string out;
  char buffer[8192];
  while (want == 0 || out.size() < want) {
    const size_t ask = want == 0 ? sizeof buffer : std::min(sizeof buffer, want - out.size());
    ssize_t n = ::read(fd, buffer, ask);
    if (n < 0) return {};
    if (n == 0) break;
    out.append(buffer, static_cast<size_t>(n));
  }
  return out;
}

std::optional<CapturingApplication> Named(std::string id, std::string name) {
  if (id.empty()) return std::nullopt;
  return CapturingApplication{std::move(id), std::move(name)};
}

std::optional<CapturingApplication> FromHyprland(const std::string& runtimeDir,
                                                 const std::string& signature) {
  for (const std::string& base : {runtimeDir + "/hypr/", std::string("/tmp/hypr/")}) {
    int fd = Connect(base + signature + "/.socket.sock");
    if (fd < 0) continue;
    std::string reply = WriteAll(fd, "j/activewindow") ? Read(fd, 0) : "";
    ::close(fd);
    json window = json::parse(reply, nullptr, false);
    if (!window.is_object()) return std::nullopt;
    return Named(window.value("class", ""), window.value("title", ""));
  }
  return std::nullopt;
}

const json* FocusedNode(const json& node) {
  if (node.value("focused", false)) return &node;
  for (const char* children : {"nodes", "floating_nodes"}) {
    if (!node.contains(children) || !node[children].is_array()) continue;
    for (const auto& child : node[children]) {
      if (const json* found = FocusedNode(child)) return found;
    }
  }
  return nullptr;
}

std::optional<CapturingApplication> FromSway(const std::string& socketPath) {
  int fd = Connect(socketPath);
  if (fd < 0) return std::nullopt;
  // i3-ipc: magic, payload length, message type (4: GET_TREE).
  std::string request("i3-ipc", 6);
  const uint32_t header[2] = {0, 4};
  request.append(reinterpret_cast<const char*>(header), sizeof header);
  std::string reply;
  if (WriteAll(fd, request)) {
    std::string head = Read(fd, 14);
    if (head.size() == 14 && head.starts_with("i3-ipc")) {
      uint32_t length = 0;
      std::memcpy(&length, head.data() + 6, sizeof length);
      if (length < (64u << 20)) reply = Read(fd, length);
    }
  }
  ::close(fd);
  json tree = json::parse(reply, nullptr, false);
  const json* focused = tree.is_object() ? FocusedNode(tree) : nullptr;
  if (!focused) return std::nullopt;
  std::string id;
  if ((*focused)["app_id"].is_string()) id = (*focused)["app_id"].get<std::string>();
  if (id.empty() && focused->contains("window_properties")) {
    id = (*focused)["window_properties"].value("class", "");
  }
  std::string name = (*focused)["name"].is_string() ? (*focused)["name"].get<std::string>() : "";
  return Named(std::move(id), std::move(name));
}

xcb_atom_t Atom(xcb_connection_t* c, const char* name) {
  auto* reply = xcb_intern_atom_reply(
      c, xcb_intern_atom(c, 1, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
  xcb_atom_t atom = reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
  free(reply);
  return atom;
}

std::string Property(xcb_connection_t* c, xcb_window_t window, xcb_atom_t property,
                     xcb_atom_t type) {
  auto* reply = xcb_get_property_reply(
      c, xcb_get_property(c, 0, window, property, type, 0, 4096), nullptr);
  std::string value;
  if (reply && reply->format == 8) {
    value.assign(static_cast<const char*>(xcb_get_property_value(reply)),
                 static_cast<size_t>(xcb_get_property_value_length(reply)));
  }
  free(reply);
  return value;
}

std::optional<CapturingApplication> FromX11(const char* display) {
  xcb_connection_t* c = xcb_connect(display, nullptr);
  if (!c || xcb_connection_has_error(c)) {
    if (c) xcb_disconnect(c);
    return std::nullopt;
  }
  std::optional<CapturingApplication> found;
  const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
  xcb_window_t window = XCB_WINDOW_NONE;
  if (screen) {
    auto* active = xcb_get_property_reply(
        c,
        xcb_get_property(c, 0, screen->root, Atom(c, "_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW, 0, 1),
        nullptr);
    if (active && xcb_get_property_value_length(active) >= 4) {
      window = *static_cast<xcb_window_t*>(xcb_get_property_value(active));
    }
    free(active);
    if (window == XCB_WINDOW_NONE) {
      // No window manager says: the window with the keyboard focus.
      auto* focus = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
      if (focus && focus->focus != screen->root && focus->focus > 1) window = focus->focus;
      free(focus);
    }
  }
  if (window != XCB_WINDOW_NONE) {
    // WM_CLASS is two strings: the instance, then the class.
    const std::string wmClass = Property(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    const size_t split = wmClass.find('\0');
    std::string id = split == std::string::npos ? wmClass : wmClass.substr(split + 1);
    if (auto end = id.find('\0'); end != std::string::npos) id.resize(end);
    std::string title = Property(c, window, Atom(c, "_NET_WM_NAME"), Atom(c, "UTF8_STRING"));
    if (title.empty()) title = Property(c, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING);
    found = Named(std::move(id), std::move(title));
  }
  xcb_disconnect(c);
  return found;
}

}  // namespace

DesktopActiveApplication::DesktopActiveApplication(
    std::function<const char*(const char*)> getenv)
    : getenv_(std::move(getenv)) {}

std::optional<CapturingApplication> DesktopActiveApplication::current() {
  auto env = [this](const char* name) -> std::string {
    const char* value = getenv_ ? getenv_(name) : nullptr;
    return value ? value : "";
  };
  if (const std::string signature = env("HYPRLAND_INSTANCE_SIGNATURE"); !signature.empty()) {
    if (auto app = FromHyprland(env("XDG_RUNTIME_DIR"), signature)) return app;
  }
  if (const std::string sway = env("SWAYSOCK"); !sway.empty()) {
    if (auto app = FromSway(sway)) return app;
  }
  if (const std::string display = env("DISPLAY"); !display.empty()) {
    return FromX11(display.c_str());
  }
  return std::nullopt;
}

}  // namespace klipora
