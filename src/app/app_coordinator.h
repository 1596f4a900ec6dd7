// AppCoordinator: the one long-lived object that owns the services of a
// running library: its storage, the import pipeline, the save coalescer, the
// trash retention, the disk-space watch, and (as they exist in this build) the folder watcher, the
// processing queue, the bulk import and the announcement poller.
//
// start() brings the library up in a fixed order (see app_coordinator.cc).
// When the volume holding the library root goes away, the coordinator stops
// the watcher and the queue and refuses imports and removals until it comes
// back: nothing is deleted or rewritten while paused. At the end the owner
// flushes saveCoalescer() (or calls shutDown(), which drains imports and
// flushes) before stop().
//
// Thread rules: main thread only, like the context it is given.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/app_environment.h"
#include "app/app_services.h"
#include "ingestion/import_pipeline.h"
#include "ingestion/watched_folder_reconciler.h"
#include "ingestion/watcher_pause_schedule.h"
#include "library/app_settings.h"
#include "library/disk_space_monitor.h"
#include "library/library_root.h"
#include "library/model_context.h"
#include "library/screenshot_item_store.h"
#include "library/storage_service.h"
#include "library/trash_retention_service.h"
#include "platform/owned_executor.h"
#include "processing/processing_save_coalescer.h"

namespace klipora::app {

class AppCoordinator {
 public:
  static constexpr char kRepairedTitlesKey[] = "AppCoordinator.repairedAutomaticUserTitles.v1";
  static constexpr double kFolderHealthProbeInterval = 30;
  static constexpr int kStuckItemsListed = 20;
  static constexpr double kReconciliationDebounce = 30;
  // Network and FUSE file systems send no file events: their new files are
  // found by this periodic pass.
  static constexpr double kSafetyRescanInterval = 600;

  // `context` may be null (a start without a store): every step that needs
  // it logs that it was skipped.
  AppCoordinator(AppEnvironment env, library::ModelContext* context,
                 AppServiceFactories factories = {});
  ~AppCoordinator();
  AppCoordinator(const AppCoordinator&) = delete;
  AppCoordinator& operator=(const AppCoordinator&) = delete;

  void start();
  // Stops every service and timer. Call after the save coalescer was flushed.
  void stop();
  // Refuses new imports, waits for the imports in flight, flushes the save
  // coalescer, then calls `done` (on the main loop, possibly at once).
  void shutDown(std::function<void(Status saved)> done);

  void reloadPreferencesIfNeeded();
  void loadPreferences();
  void recoverNonTerminalItems();
  void repairAutomaticUserTitles(library::ModelContext& context);
  library::LibraryRootResolution resolveLibraryRootAtLaunch();
  void handleLibraryVolumeMaybeUnmounted();
  void handleLibraryVolumeMaybeRemounted();
  void scanForLeftoverMigrationSentinel();
  void enableAutomaticImport(bool advanceCutoff);

  // Reconciliation of the watched folders (app_coordinator_reconciliation.cc).
  struct ReconciliationOutcome {
    enum class Kind { skipped, aborted, nothingNew, imported, pending };
    Kind kind = Kind::nothingNew;
    std::string message;  // why it was skipped or aborted
    int found = 0, imported = 0, duplicates = 0, failed = 0;
    std::vector<std::pair<std::string, std::string>> failures;  // path, reason
  };
  using ReconciliationDone = std::function<void(const ReconciliationOutcome&)>;
  // The gate: skipped while a pass runs, while paused, and unless the user
  // `requested` it, with automatic import off or within 30 s of the last
  // pass; otherwise a pass runs over the active folders (those of
  // `onlyFolders` when given).
  void runReconciliationIfDue(ReconciliationDone done = nullptr, bool requested = false,
                              std::vector<std::string> onlyFolders = {});
  // Accepts the result held for the user's decision; `done` gets nothingNew
  // when nothing is pending.
  void acceptPendingReconciliation(ReconciliationDone done = nullptr);
  void dismissPendingReconciliation();
  // Every file of these folders that the library lacks, whatever its age,
  // imported at once (no threshold).
  void scanFoldersForUnimportedFiles(const std::vector<library::WatchedFolder>& folders,
                                     ReconciliationDone done = nullptr);
  // Sets one folder's cut-off (to now when `at` is absent); never backwards.
  Status stampReconciled(const UUID& folderID, std::optional<Date> at = std::nullopt);
  bool isReconciling() const { return isReconciling_; }
  const std::optional<ingestion::ReconciliationResult>& pendingReconciliation() const {
    return pendingReconciliation_;
  }

  // A new screenshot seen by the watcher: imported (source automaticWatch)
  // unless it is older than its folder's last sweep, then queued first.
  void handleNewScreenshot(const std::string& path, std::optional<std::string> appBundleID,
                           std::optional<std::string> appName);
  // Imports one file through the pipeline and queues the new item: a
  // screenshot just taken in the priority lane, anything else in the bulk
  // lane. Refused while paused or shutting down.
  void importFile(const std::string& path, library::ImportSourceType source,
                  std::optional<std::string> appBundleID, std::optional<std::string> appName,
                  ingestion::ImportPipeline::Completion done);
  int importsInFlight() const { return importsInFlight_; }

  // Acts on what other processes saved to the store: settings changes apply
  // at once, and items they trashed or removed leave the processing queue.
  void handleExternalStoreChanges();

  // Null before start(), while paused, and without a context.
  library::StorageService* storageIfReady();
  library::ModelContext* modelContext() { return context_; }
  processing::ProcessingSaveCoalescer* saveCoalescer() { return saver_.get(); }
  library::TrashRetentionService* trashRetention() { return retention_.get(); }
  // Free space of the library's volume, refreshed every minute from start().
  library::DiskSpaceMonitor* diskSpace() { return diskSpace_.get(); }
  ProcessingQueueService* processingQueue() { return queue_.get(); }
  IngestionWatcherService* watcher() { return watcher_.get(); }
  ingestion::WatcherPauseSchedule& pauseSchedule() { return pause_; }
  const AppEnvironment& environment() const { return env_; }
  const std::optional<library::LibraryFallbackNotice>& fallbackNotice() const {
    return fallbackNotice_;
  }
  const std::string& libraryRoot() const { return root_; }
  bool started() const { return started_; }
  bool servicesPaused() const { return servicesPaused_; }
  bool shuttingDown() const { return shuttingDown_; }
  const std::string& lastError() const { return lastError_; }

 private:
  // Steps of start(), in their files.
  void createServices();
  void startFolderHealthProbe();
  bool libraryRootIsUsable();
  std::shared_ptr<library::AppSettings> currentSettings();
  void applySettings(const library::AppSettings& settings, bool atStart);
  void importFinished();
  void performReconciliation(ReconciliationDone done, const std::vector<std::string>& only);
  void autoImport(ingestion::ReconciliationResult result, ReconciliationDone done);
  void endReconciliation(const ReconciliationOutcome& outcome, const ReconciliationDone& done);
  void stampAllFoldersReconciledNow();
  // The pass at start and the periodic safety pass.
  void startReconciliation();

  AppEnvironment env_;
  // The coordinator's own background work (file copies, free-space readings):
  // the destructor closes it before the services that work uses go away.
  OwnedExecutor background_{env_.background};
  library::ModelContext* context_;
  AppServiceFactories factories_;

  std::string root_;
  std::optional<library::LibraryFallbackNotice> fallbackNotice_;
  std::unique_ptr<library::StorageService> storage_;
  std::unique_ptr<processing::ProcessingSaveCoalescer> saver_;
  std::unique_ptr<library::ScreenshotItemStore> itemStore_;
  std::unique_ptr<ingestion::ImportChecksumClaims> claims_;
  std::unique_ptr<ingestion::ImportPipeline> pipeline_;
  std::unique_ptr<library::TrashRetentionService> retention_;
  std::unique_ptr<library::DiskSpaceMonitor> diskSpace_;
  ingestion::WatcherPauseSchedule pause_;
  std::unique_ptr<IngestionWatcherService> watcher_;
  std::unique_ptr<ProcessingQueueService> queue_;
  std::unique_ptr<BulkImportService> bulkImport_;
  std::unique_ptr<AnnouncementPollerService> announcements_;

  std::optional<TimerId> healthProbe_;
  std::optional<TimerId> safetyRescan_;
  bool isReconciling_ = false;
  std::optional<double> lastReconciliationAt_;  // monotonic seconds
  std::optional<ingestion::ReconciliationResult> pendingReconciliation_;
  // Work posted to the main loop checks this before touching the coordinator.
  std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
  bool started_ = false;
  bool servicesPaused_ = false;
  bool structureCreated_ = false;
  bool shuttingDown_ = false;
  int importsInFlight_ = 0;
  std::function<void()> whenImportsDrained_;
  std::string lastError_;

  // What loadPreferences last applied, to tell what another process changed.
  std::optional<library::AppSettings> applied_;
};

}  // namespace klipora::app
