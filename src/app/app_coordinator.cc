// The start-up order and the coordinator's lifetime. The sweeps, the volume
// watch, the preferences and the imports live in app_coordinator_*.cc.
#include "app/app_coordinator.h"

#include "library/orphan_files.h"
#include "platform/log.h"

namespace klipora::app {

using library::LibraryRootResolution;

AppCoordinator::AppCoordinator(AppEnvironment env, library::ModelContext* context,
                               AppServiceFactories factories)
    : env_(std::move(env)),
      context_(context),
      factories_(std::move(factories)),
      pause_(env_.userDefaults, env_.clock, &env_.timers) {
  if (context_)
    saver_ = std::make_unique<processing::ProcessingSaveCoalescer>(*context_, env_.timers);
}

AppCoordinator::~AppCoordinator() {
  stop();
  background_.close();
}

LibraryRootResolution AppCoordinator::resolveLibraryRootAtLaunch() {
  std::optional<std::string> chosen;
  if (auto settings = currentSettings()) chosen = settings->libraryFolder;
  // The chosen folder stays recorded; the fallback lasts for this session.
  return library::resolveLibraryRoot(env_.fileSystem, chosen, env_.defaultLibraryRoot);
}

void AppCoordinator::start() {
  if (started_) return;
  log::info("Boot", "AppCoordinator.start() begin (modelContext present=%s)",
            log::yesNo(context_ != nullptr));
  auto resolution = resolveLibraryRootAtLaunch();
  root_ = resolution.root;
  fallbackNotice_ = resolution.fallbackNotice;

  storage_ = std::make_unique<library::StorageService>(env_.fileSystem, env_.imageCodec, root_);
  if (Status s = storage_->createLibraryStructure(); s.ok()) {
    structureCreated_ = true;
  } else {
    // Treated like a missing volume below: paused until the folder works.
    log::error("Boot", "cannot create the library folders at %s: %s", root_.c_str(),
               s.message().c_str());
  }
  createServices();
  started_ = true;
  if (structureCreated_ && context_) {
    // Files a killed import left behind; see orphan_files.h for why imports
    // of other processes running now are safe.
    if (auto swept = library::sweepOrphanFiles(*context_, *storage_, env_.clock); !swept) {
      log::warning("Cleanup", "orphan sweep failed: %s", swept.error().message().c_str());
    }
  }

  pause_.load();
  if (factories_.makeWatcher) {
    watcher_ = factories_.makeWatcher(*this);
  } else {
    log::info("Boot", "watcher skipped — no ingestionWatcher");
  }
  if (factories_.makeProcessingQueue) {
    queue_ = factories_.makeProcessingQueue(*this);
    if (queue_) queue_->start();
  }
  recoverNonTerminalItems();
  if (factories_.makeBulkImport) {
    bulkImport_ = factories_.makeBulkImport(*this);
  } else {
    log::info("Boot", "bulk import skipped — no bulkImportManager");
  }
  loadPreferences();
  if (factories_.makeAnnouncementPoller) {
    announcements_ = factories_.makeAnnouncementPoller(*this);
    if (announcements_) announcements_->startPolling();
  } else {
    log::info("Boot", "announcement polling skipped — no announcementPoller");
  }
  if (queue_) {
    auto orphans = queue_->orphanedItemIDs();
    for (const UUID& id : orphans) queue_->enqueue(id);
    log::info("Boot", "enqueued %zu orphaned item(s)", orphans.size());
  } else {
    log::info("Boot", "orphan sweep skipped — no processingQueue");
  }
  startFolderHealthProbe();
  scanForLeftoverMigrationSentinel();

  if (!structureCreated_) handleLibraryVolumeMaybeUnmounted();
  if (retention_) retention_->start();
  diskSpace_ = std::make_unique<library::DiskSpaceMonitor>(
      env_.fileSystem, env_.clock, env_.timers, env_.mainLoop, background_, root_);
  diskSpace_->start();
  startReconciliation();
  log::info("Boot", "AppCoordinator.start() end (root=%s)", root_.c_str());
}

void AppCoordinator::createServices() {
  if (!context_) return;
  itemStore_ = std::make_unique<library::ScreenshotItemStore>(context_);
  claims_ = std::make_unique<ingestion::ImportChecksumClaims>(*itemStore_);
  pipeline_ = std::make_unique<ingestion::ImportPipeline>(
      *storage_, *context_, *saver_, *claims_, env_.clock, env_.mainLoop, background_);
  if (env_.processing) pipeline_->setFreshWorker(env_.processing->freshRecognition);
  retention_ = std::make_unique<library::TrashRetentionService>(
      *context_, [this] { return storageIfReady(); }, env_.markupEdits, env_.clock, env_.timers);
}

library::StorageService* AppCoordinator::storageIfReady() {
  if (!started_ || servicesPaused_ || !context_) return nullptr;
  return storage_.get();
}

void AppCoordinator::shutDown(std::function<void(Status saved)> done) {
  shuttingDown_ = true;
  if (watcher_) watcher_->stopAll();
  // Files not yet begun are left where they are for the next start's sweep;
  // only the copies under way are waited for.
  if (pipeline_) {
    pipeline_->dropWaiting(
        ingestion::ImportError::fileSystem(Status::Unavailable("Klipora is stopping")));
  }
  auto finish = [this, done = std::move(done)] {
    Status saved = saver_ ? saver_->flush() : Status::Ok();
    done(saved);
  };
  if (importsInFlight_ == 0) {
    finish();
    return;
  }
  log::info("Boot", "waiting for %d import(s) in flight before stopping", importsInFlight_);
  whenImportsDrained_ = std::move(finish);
}

void AppCoordinator::stop() {
  if (!started_) return;
  started_ = false;
  if (healthProbe_) env_.timers.cancel(*healthProbe_);
  healthProbe_.reset();
  if (safetyRescan_) env_.timers.cancel(*safetyRescan_);
  safetyRescan_.reset();
  if (env_.mountWatch) env_.mountWatch->stop();
  if (env_.sessionWatch) env_.sessionWatch->stop();
  if (retention_) retention_->stop();
  if (diskSpace_) diskSpace_->stop();
  if (announcements_) announcements_->stopPolling();
  if (bulkImport_) bulkImport_->cancelAll();
  if (watcher_) watcher_->stopAll();
  if (queue_) queue_->stop();
  log::info("Boot", "AppCoordinator.stop()");
}

}  // namespace klipora::app
