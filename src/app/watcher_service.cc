#include "app/watcher_service.h"

#include "app/app_coordinator.h"
#include "ingestion/ingestion_watcher.h"
#include "ingestion/screenshot_folders.h"
#include "library/records.h"
#include "library/settings_store.h"
#include "platform/log.h"

namespace klipora::app {
namespace {

using library::WatchedFolder;

class WatcherService final : public IngestionWatcherService {
 public:
  WatcherService(AppCoordinator& coordinator, const AppEnvironment& env)
      : coordinator_(coordinator),
        env_(env),
        watcher_({*env.folderWatch, env.fileSystem, env.clock, env.timers},
                 coordinator.libraryRoot()) {
    watcher_.onNewFile = [this](const std::string& path, std::optional<std::string> bundleID,
                                std::optional<std::string> appName) {
      coordinator_.handleNewScreenshot(path, std::move(bundleID), std::move(appName));
    };
    watcher_.setActiveApplication(env.activeApplication);
    addScreenshotFoldersOnFirstStart();
  }

  bool isWatching() const override { return watcher_.isWatching(); }
  void reloadFolders() override {
    auto* context = coordinator_.modelContext();
    if (!context) return;
    auto rows = context->fetch<WatchedFolder>();
    if (!rows) {
      log::error("Watcher", "cannot read the watched folders: %s", rows.error().message().c_str());
      return;
    }
    std::vector<ingestion::WatchedFolderSnapshot> folders;
    for (const auto& row : *rows) {
      if (!row->isEnabled || row->pausedAt || row->shadowedByFolderID) continue;
      folders.push_back({row->id, row->path, row->isDefault, row->includeSubfolders});
    }
    watcher_.reloadFolders(std::move(folders));
  }
  void stopAll() override { watcher_.stopAll(); }
  std::vector<std::string> watchedFolders() const override { return watcher_.watchedFolders(); }
  std::vector<std::string> awaitedFolders() const override { return watcher_.awaitedFolders(); }

 private:
  void addScreenshotFoldersOnFirstStart() {
    auto* context = coordinator_.modelContext();
    if (!context) return;
    auto settings = library::fetchOrCreateSettings(*context);
    auto rows = context->fetch<WatchedFolder>();
    if (!settings || !rows || (*settings)->onboardingCompleted || !rows->empty()) return;
    const char* home = env_.getenv ? env_.getenv("HOME") : nullptr;
    if (!home || !*home) return;
    auto paths =
        ingestion::findScreenshotFolders(env_.fileSystem, home, env_.getenv, env_.desktopSettings);
    const Date now = env_.clock.now();
    int index = 0;
    for (const std::string& path : paths) {
      auto row = std::make_shared<WatchedFolder>();
      row->displayName = lastPathComponent(path);
      row->path = path;
      row->isDefault = true;
      row->sortIndex = index++;
      row->createdAt = now;
      // What already lies there is the user's past, not a new screenshot.
      row->lastReconciledAt = now;
      context->insert(row);
    }
    (*settings)->automaticImportEnabled = true;
    (*settings)->onboardingCompleted = true;
    if (Status s = context->save(); !s.ok()) {
      log::error("Watcher", "cannot save the screenshot folders: %s", s.message().c_str());
      context->rollback();
      return;
    }
    log::info("Watcher", "first start: watching %zu screenshot folder(s)", paths.size());
    for (const std::string& path : paths) log::info("Watcher", "  - %s", path.c_str());
  }

  AppCoordinator& coordinator_;
  const AppEnvironment& env_;
  ingestion::IngestionWatcher watcher_;
};

}  // namespace

std::function<std::unique_ptr<IngestionWatcherService>(AppCoordinator&)>
makeWatcherServiceFactory() {
  return [](AppCoordinator& coordinator) -> std::unique_ptr<IngestionWatcherService> {
    const AppEnvironment& env = coordinator.environment();
    if (!env.folderWatch) return nullptr;
    return std::make_unique<WatcherService>(coordinator, env);
  };
}

}  // namespace klipora::app
