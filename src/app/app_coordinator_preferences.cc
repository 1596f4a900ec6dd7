// Preferences: applying the settings row, at start and whenever another
// process (`klipora settings set`, a second window) saves a change.
#include <set>

#include "app/app_coordinator.h"
#include "library/screenshot_item.h"
#include "library/settings_store.h"
#include "platform/log.h"

namespace klipora::app {

std::shared_ptr<library::AppSettings> AppCoordinator::currentSettings() {
  if (!context_) return nullptr;
  auto settings = library::fetchOrCreateSettings(*context_);
  if (!settings) {
    log::error("Boot", "cannot read the settings: %s", settings.error().message().c_str());
    return nullptr;
  }
  return *settings;
}

void AppCoordinator::reloadPreferencesIfNeeded() {
  bool watching = watcher_ && watcher_->isWatching();
  log::info("Boot", "reloadPreferencesIfNeeded() called (isWatching=%s, modelContext present=%s)",
            log::yesNo(watching), log::yesNo(context_ != nullptr));
  if (watching) {
    log::info("Boot", "reloadPreferencesIfNeeded: already watching, skip loadPreferences");
    return;
  }
  log::info("Boot", "reloadPreferencesIfNeeded: calling loadPreferences()");
  loadPreferences();
}

void AppCoordinator::loadPreferences() {
  auto settings = currentSettings();
  if (!settings) {
    log::info("Boot", "loadPreferences skipped — no AppSettings");
    return;
  }
  applySettings(*settings, /*atStart=*/true);
}

void AppCoordinator::applySettings(const library::AppSettings& settings, bool atStart) {
  std::optional<library::AppSettings> before = applied_;
  applied_ = settings;
  if (pipeline_) pipeline_->setDeleteOriginalAfterImport(settings.deleteOriginalAfterImport);
  bool importChanged = !before || before->automaticImportEnabled != settings.automaticImportEnabled;
  if (atStart || importChanged) {
    log::info("Boot", "loadPreferences: automaticImportEnabled=%s",
              log::yesNo(settings.automaticImportEnabled));
    if (settings.automaticImportEnabled && !servicesPaused_) {
      // A file that arrived while the switch was off belongs to the sweep.
      enableAutomaticImport(/*advanceCutoff=*/!atStart);
    } else if (!settings.automaticImportEnabled && watcher_) {
      watcher_->stopAll();
    }
  }
  if (before && before->libraryFolder != settings.libraryFolder) {
    log::info("Library", "library folder setting changed to %s; it takes effect at the next start",
              settings.libraryFolder.value_or("(default)").c_str());
  }
  if (before && before->trashRetentionDays != settings.trashRetentionDays && retention_) {
    log::info("TrashRetention", "retention changed from %d to %d day(s); sweeping now",
              before->trashRetentionDays, settings.trashRetentionDays);
    (void)retention_->runSweep();
  }
}

void AppCoordinator::enableAutomaticImport(bool advanceCutoff) {
  log::info("Watcher", "enableAutomaticImport advanceCutoff=%s", advanceCutoff ? "true" : "false");
  // What lay in the folders while import was off is the user's past, neither
  // a paste for the watcher nor work for the next sweep.
  if (advanceCutoff) stampAllFoldersReconciledNow();
  if (!watcher_) {
    log::info("Watcher", "enableAutomaticImport skipped — no ingestionWatcher");
    return;
  }
  watcher_->reloadFolders();
}

void AppCoordinator::handleExternalStoreChanges() {
  if (!context_ || !started_) return;
  if (auto settings = currentSettings()) {
    const bool wasWatching = applied_ && applied_->automaticImportEnabled;
    applySettings(*settings, /*atStart=*/false);
    // The watched folders may have changed (`klipora folders`); the same set
    // costs nothing to reload. Switching import on has reloaded them already.
    if (wasWatching && settings->automaticImportEnabled && watcher_ && !servicesPaused_) {
      watcher_->reloadFolders();
    }
  }
  if (!queue_) return;
  queue_->libraryChangedElsewhere();
  // Imported here but not saved yet: the store cannot know them.
  std::set<UUID> unsaved;
  for (const auto& item : context_->pendingInserts<library::ScreenshotItem>()) {
    unsaved.insert(item->id);
  }
  for (const UUID& id : queue_->queuedItemIDs()) {
    if (unsaved.count(id)) continue;
    auto item = context_->fetchByKey<library::ScreenshotItem>(id.uuidString());
    if (!item) continue;  // unreadable now; the queue will find out itself
    if (!*item || (*item)->isTrashed()) {
      log::info("Processing", "dropping %s from the queue: %s elsewhere", id.uuidString().c_str(),
                *item ? "trashed" : "deleted");
      queue_->remove(id);
    }
  }
}

}  // namespace klipora::app
