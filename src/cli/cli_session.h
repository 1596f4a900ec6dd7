// CliSession: what a klipora command works with: the library session of the
// app layer (platform, paths, store, settings, storage, the daemon) and the
// command's exit code. Commands print results to standard output and
// problems to standard error, and set exitCode.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "app/library_session.h"
#include "library/screenshot_item.h"

namespace klipora::cli {

class CliSession : public app::LibrarySession {
 public:
  explicit CliSession(app::AppPlatform& platform) : LibrarySession(platform) {}

  // Opens the store and library on first use. On failure prints the reason
  // (the fatal message for a store that cannot be opened), sets exitCode and
  // returns false.
  bool openLibrary();

  int exitCode = 0;
};

// The items with these ids, every id checked before a command changes
// anything, so that a typo changes nothing. On a malformed id (a usage error,
// found before the library is opened) or one no item has, prints why, sets
// session.exitCode and returns nothing.
std::optional<std::vector<std::shared_ptr<library::ScreenshotItem>>> fetchItems(
    CliSession& session, const std::vector<std::string>& ids);

// Prints `json` pretty (2 spaces) with a trailing newline.
void printJson(const nlohmann::ordered_json& json);

}  // namespace klipora::cli
