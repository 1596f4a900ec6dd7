// DesktopActiveApplication: ActiveApplication from whichever desktop runs:
// Hyprland's IPC socket (HYPRLAND_INSTANCE_SIGNATURE, "j/activewindow"),
// Sway's IPC socket (SWAYSOCK, the focused node of the tree), else the X
// server of DISPLAY (_NET_ACTIVE_WINDOW, or the input focus, and its
// WM_CLASS and title). Each query connects afresh, with a short time-out.
#pragma once

#include <functional>

#include "platform/active_application.h"

namespace klipora {

class DesktopActiveApplication final : public ActiveApplication {
 public:
  // `getenv` reads the environment (null when a variable is unset).
  explicit DesktopActiveApplication(std::function<const char*(const char*)> getenv);

  std::optional<CapturingApplication> current() override;

 private:
  std::function<const char*(const char*)> getenv_;
};

}  // namespace klipora
