// DesktopSettings: the settings a desktop keeps for its applications, read
// by schema and key (on Linux, GSettings). The screenshot tools that keep
// their save folder there are asked through it.
//
// Thread rules: any thread, one call at a time.
#pragma once

#include <optional>
#include <string>

namespace klipora {

class DesktopSettings {
 public:
  DesktopSettings() = default;
  DesktopSettings(const DesktopSettings&) = delete;
  DesktopSettings& operator=(const DesktopSettings&) = delete;
  virtual ~DesktopSettings() = default;

  // The text stored under `key` of `schema`, or its default; absent when the
  // schema is not installed, has no such key, or the key holds no text.
  virtual std::optional<std::string> text(const std::string& schema, const std::string& key) = 0;
};

}  // namespace klipora
