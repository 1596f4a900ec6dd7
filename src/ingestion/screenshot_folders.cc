#include "ingestion/screenshot_folders.h"

#include <algorithm>
#include <sstream>

namespace klipora::ingestion {
namespace {

std::string Trim(std::string s) {
  const char* blank = " \t\r\n";
  s.erase(0, s.find_first_not_of(blank));
  s.erase(s.find_last_not_of(blank) + 1);
  return s;
}

std::string Unquote(std::string s) {
  if (s.size() >= 2 && (s.front() == '"' || s.front() == '\'') && s.back() == s.front()) {
    return s.substr(1, s.size() - 2);
  }
  return s;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The path of a file URI: "%20" and the like become the bytes they stand for.
std::string PercentDecoded(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size() && HexDigit(s[i + 1]) >= 0 && HexDigit(s[i + 2]) >= 0) {
      out += static_cast<char>(HexDigit(s[i + 1]) * 16 + HexDigit(s[i + 2]));
      i += 2;
    } else {
      out += s[i];
    }
  }
  return out;
}

// "$HOME/x", "${HOME}/x", "~/x" and "file:///x" as plain absolute paths;
// anything else relative is left out.
std::string Expand(std::string value, const std::string& home) {
  value = Unquote(Trim(std::move(value)));
  if (value.starts_with("file://")) value = PercentDecoded(value.substr(7));
  for (const char* prefix : {"$HOME", "${HOME}", "~"}) {
    const std::string p(prefix);
    if (value == p || value.starts_with(p + "/")) value = home + value.substr(p.size());
  }
  while (value.size() > 1 && value.back() == '/') value.pop_back();
  return value.starts_with('/') ? value : std::string();
}

// The value of `key` in an INI-style file, in `section` when one is given.
std::string IniValue(FileSystem& fs, const std::string& path, const std::string& section,
                     const std::string& key) {
  auto text = fs.readFileRange(path, 0, 1 << 20);
  if (!text) return {};
  std::istringstream in(*text);
  std::string line, current;
  while (std::getline(in, line)) {
    line = Trim(line);
    if (line.starts_with('[')) {
      current = line.substr(1, line.find(']') - 1);
      continue;
    }
    const size_t eq = line.find('=');
    if (eq == std::string::npos || (!section.empty() && current != section)) continue;
    if (Trim(line.substr(0, eq)) == key) return line.substr(eq + 1);
  }
  return {};
}

// Xfce keeps its settings as XML properties: <property name="…" value="…"/>.
std::string XfceProperty(FileSystem& fs, const std::string& path, const std::string& name) {
  auto text = fs.readFileRange(path, 0, 1 << 20);
  if (!text) return {};
  const std::string key = "name=\"" + name + "\"";
  const size_t at = text->find(key);
  if (at == std::string::npos) return {};
  const size_t value = text->find("value=\"", at);
  const size_t end = value == std::string::npos ? value : text->find('"', value + 7);
  if (end == std::string::npos) return {};
  return text->substr(value + 7, end - value - 7);
}

}  // namespace

std::vector<std::string> findScreenshotFolders(
    FileSystem& fs, const std::string& home, const std::function<const char*(const char*)>& getenv,
    DesktopSettings* settings) {
  std::vector<std::string> folders;
  auto add = [&](const std::string& raw) {
    std::string path = Expand(raw, home);
    if (!path.empty() && path != home && path != "/" &&
        std::find(folders.begin(), folders.end(), path) == folders.end()) {
      folders.push_back(path);
    }
  };
  auto env = [&](const char* name) {
    const char* value = getenv(name);
    return std::string(value ? value : "");
  };
  const std::string config =
      env("XDG_CONFIG_HOME").empty() ? home + "/.config" : env("XDG_CONFIG_HOME");

  add(env("XDG_SCREENSHOTS_DIR"));
  std::string pictures = env("XDG_PICTURES_DIR");
  if (pictures.empty()) pictures = IniValue(fs, config + "/user-dirs.dirs", "", "XDG_PICTURES_DIR");
  if (Expand(pictures, home).empty()) pictures = home + "/Pictures";
  add(pictures);
  add(Expand(pictures, home) + "/Screenshots");
  add(home + "/Screenshots");
  add(IniValue(fs, config + "/spectaclerc", "ImageSave", "imageSaveLocation"));
  add(IniValue(fs, config + "/flameshot/flameshot.ini", "General", "savePath"));
  if (settings) {
    // Empty (the default) means the pictures folder, already in the list.
    add(settings->text("org.gnome.gnome-screenshot", "auto-save-directory").value_or(""));
  }
  add(XfceProperty(fs, config + "/xfce4/xfconf/xfce-perchannel-xml/xfce4-screenshooter.xml",
                   "screenshot_dir"));
  add(env("GRIM_DEFAULT_DIR"));
  add(env("HYPRSHOT_DIR"));
  return folders;
}

}  // namespace klipora::ingestion
