#include "ingestion/screenshot_folders.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/testing/memory_file_system.h"

namespace klipora::ingestion {
namespace {

// Desktop settings as a map from "schema key" to text.
class MapDesktopSettings final : public DesktopSettings {
 public:
  std::optional<std::string> text(const std::string& schema, const std::string& key) override {
    auto it = values.find(schema + " " + key);
    return it == values.end() ? std::nullopt : std::optional<std::string>(it->second);
  }
  std::map<std::string, std::string> values;
};

TEST(ScreenshotFoldersTest, EachToolsSettingIsReadAndTheListHasNoRepeats) {
  testing::MemoryFileSystem fs;
  MapDesktopSettings settings;
  // gnome-screenshot's default: the pictures folder.
  settings.values["org.gnome.gnome-screenshot auto-save-directory"] = "";
  std::map<std::string, std::string> env = {{"GRIM_DEFAULT_DIR", "/home/u/Pictures/Screenshots"}};
  auto getenv = [&](const char* name) -> const char* {
    auto it = env.find(name);
    return it == env.end() ? nullptr : it->second.c_str();
  };
  EXPECT_EQ(findScreenshotFolders(fs, "/home/u", getenv, &settings),
            (std::vector<std::string>{"/home/u/Pictures", "/home/u/Pictures/Screenshots",
                                      "/home/u/Screenshots"}));

  fs.addFile("/home/u/.config/user-dirs.dirs",
             "# written by xdg-user-dirs-update\nXDG_PICTURES_DIR=\"$HOME/Bilder\"\n");
  fs.addFile("/home/u/.config/spectaclerc",
             "[General]\nimageSaveLocation=file:///nowhere\n[ImageSave]\n"
             "imageSaveLocation=file:///home/u/Bilder/Spectacle/\n");
  fs.addFile("/home/u/.config/flameshot/flameshot.ini", "[General]\nsavePath=~/Shots\n");
  fs.addFile("/home/u/.config/xfce4/xfconf/xfce-perchannel-xml/xfce4-screenshooter.xml",
             "<channel><property name=\"screenshot_dir\" type=\"string\" "
             "value=\"file:///home/u/Xfce\"/></channel>");
  env["XDG_SCREENSHOTS_DIR"] = "relative/is/ignored";
  env["HYPRSHOT_DIR"] = "$HOME/Hypr";
  settings.values["org.gnome.gnome-screenshot auto-save-directory"] =
      "file:///home/u/Gnome%20Shots/";
  EXPECT_EQ(findScreenshotFolders(fs, "/home/u", getenv, &settings),
            (std::vector<std::string>{"/home/u/Bilder", "/home/u/Bilder/Screenshots",
                                      "/home/u/Screenshots", "/home/u/Bilder/Spectacle",
                                      "/home/u/Shots", "/home/u/Gnome Shots", "/home/u/Xfce",
                                      "/home/u/Pictures/Screenshots", "/home/u/Hypr"}));
}

}  // namespace
}  // namespace klipora::ingestion
