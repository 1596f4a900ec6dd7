// CliSession: what a klipora command works with: the platform, the paths
// of the support folder, and (opened on first use) the store, the settings
// row and the library's storage. Commands print results to standard output
// and problems to standard error, and set exitCode.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "app/app_environment.h"
#include "app/app_platform.h"
#include "library/app_settings.h"
#include "library/library_root.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "library/storage_service.h"
#include "markup/non_destructive_edit_cleaner.h"
#include "platform/app_paths.h"
#include "platform/user_defaults.h"

namespace klipora::cli {

class CliSession {
 public:
  explicit CliSession(app::AppPlatform& platform);
  ~CliSession();

  // Bound to the --home option, which wins over $KLIPORA_HOME.
  std::string homeOption;

  app::AppPlatform& platform() { return platform_; }
  // Resolved from --home and the environment on first use.
  const AppPaths& paths();

  // Opens the store and library on first use. On failure prints the reason
  // (the fatal message for a store that cannot be opened), sets exitCode and
  // returns false.
  bool openLibrary();
  library::ModelContainer& container() { return *container_; }
  library::ModelContext& context() { return container_->mainContext(); }
  library::AppSettings& settings() { return *settings_; }
  library::StorageService& storage() { return *storage_; }
  const library::LibraryRootResolution& libraryRoot() const { return root_; }
  UserDefaults& userDefaults() { return *defaults_; }
  // Clears an item's markup edits when it is deleted for good.
  library::MarkupEditCleaner& markupEdits() { return markupEdits_; }
  // The environment the engine's services run in, for a command that drives
  // them itself (after openLibrary()).
  app::AppEnvironment environment();

  int exitCode = 0;

 private:
  app::AppPlatform& platform_;
  std::optional<AppPaths> paths_;
  std::shared_ptr<library::ModelContainer> container_;
  std::shared_ptr<library::AppSettings> settings_;
  std::unique_ptr<library::StorageService> storage_;
  std::unique_ptr<UserDefaults> defaults_;
  library::LibraryRootResolution root_;
  markup::NonDestructiveEditCleaner markupEdits_;
  app::ProcessingPlatform processing_;
  std::shared_ptr<log::LogSink> fileSink_;
  bool opened_ = false;
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
