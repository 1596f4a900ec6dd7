// ActiveApplication: which application the user is looking at now, where
// the desktop tells: the application a screenshot taken a moment ago most
// likely shows. On Linux the X11 active window's WM_CLASS, or the focused
// window of Sway or Hyprland (DesktopActiveApplication).
//
// Thread rules: main thread. A query answers within a fraction of a second
// or not at all.
#pragma once

#include <optional>
#include <string>

namespace klipora {

struct CapturingApplication {
  std::string id;    // WM_CLASS class, or the Wayland app id
  std::string name;  // the window's title
};

class ActiveApplication {
 public:
  ActiveApplication() = default;
  ActiveApplication(const ActiveApplication&) = delete;
  ActiveApplication& operator=(const ActiveApplication&) = delete;
  virtual ~ActiveApplication() = default;

  // Absent when no desktop tells, or its answer names no application.
  virtual std::optional<CapturingApplication> current() = 0;
};

}  // namespace klipora
