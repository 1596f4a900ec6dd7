// The folders where this machine's screenshot tools save, found the way each
// tool says: $XDG_SCREENSHOTS_DIR, the pictures folder of
// ~/.config/user-dirs.dirs ($XDG_PICTURES_DIR, else ~/Pictures) and its
// "Screenshots" subfolder (which the tools create on first use),
// ~/Screenshots, Spectacle's `imageSaveLocation`, Flameshot's `savePath`,
// gnome-screenshot's `auto-save-directory` (a desktop setting), Xfce's
// `screenshot_dir`, $GRIM_DEFAULT_DIR and $HYPRSHOT_DIR. The list
// has no duplicates and is in that order; folders that do not exist yet are
// included when a tool would create them (the watcher waits for them).
//
// Thread rules: any thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/desktop_settings.h"
#include "platform/file_system.h"

namespace klipora::ingestion {

// `settings` null: no desktop settings are asked.
std::vector<std::string> findScreenshotFolders(
    FileSystem& fileSystem, const std::string& home,
    const std::function<const char*(const char*)>& getenv, DesktopSettings* settings);

}  // namespace klipora::ingestion
