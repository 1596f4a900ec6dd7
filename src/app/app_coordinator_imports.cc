// New files into the library: the watcher's hand-off and imports requested
// through the daemon. Imports are counted so that a shutdown can wait for
// the ones in flight: a copy that lands after the last save would be a file
// without a record.
#include "app/app_coordinator.h"
#include "library/records.h"
#include "platform/log.h"

namespace klipora::app {

void AppCoordinator::handleNewScreenshot(const std::string& path,
                                         std::optional<std::string> appBundleID,
                                         std::optional<std::string> appName) {
  if (!context_) return;
  if (pause_.isPaused()) {
    log::info("Watcher", "skip %s — global pause active (%s)", lastPathComponent(path).c_str(),
              pause_.statusDescription().value_or("").c_str());
    return;
  }
  // A file older than its folder's last sweep was pasted or restored, not
  // captured; the sweep owns it.
  auto folders = context_->fetch<library::WatchedFolder>();
  if (folders) {
    const library::WatchedFolder* owner = nullptr;
    for (const auto& folder : *folders) {
      const std::string prefix = folder->path.ends_with('/') ? folder->path : folder->path + "/";
      if (path.starts_with(prefix) && (!owner || folder->path.size() > owner->path.size())) {
        owner = folder.get();
      }
    }
    if (owner && owner->lastReconciledAt) {
      auto attributes = env_.fileSystem.attributes(path);
      Date newest;  // the distant past when nothing can be read
      if (attributes) {
        newest = attributes->modificationTime;
        Date created = attributes->birthTime.value_or(attributes->changeTime);
        if (created.timeIntervalSince(newest) > 0) newest = created;
      }
      if (newest.timeIntervalSince(*owner->lastReconciledAt) < 0) {
        log::info("Watcher", "skip historical paste %s (mtime/ctime < folder lastReconciledAt %s)",
                  lastPathComponent(path).c_str(), formatISO8601(*owner->lastReconciledAt).c_str());
        return;
      }
    }
  }
  importFile(path, library::ImportSourceType::automaticWatch, std::move(appBundleID),
             std::move(appName), [](const ingestion::ImportResult&) {});
}

void AppCoordinator::importFile(const std::string& path, library::ImportSourceType source,
                                std::optional<std::string> appBundleID,
                                std::optional<std::string> appName,
                                ingestion::ImportPipeline::Completion done) {
  auto refuse = [&](const char* why) {
    done(tl::unexpected(ingestion::ImportError::fileSystem(Status::Unavailable(why))));
  };
  if (!pipeline_) return refuse("the library is not open");
  if (shuttingDown_) return refuse("Klipora is stopping");
  if (servicesPaused_) return refuse("the library folder is not available");
  ++importsInFlight_;
  pipeline_->importScreenshot(
      path, source, std::move(appBundleID), std::move(appName),
      [this, source, done = std::move(done)](ingestion::ImportResult result) {
        // An item that exists although its import reported a late failure
        // (its original could not be removed) is processed like any other.
        std::optional<UUID> made =
            result ? std::optional<UUID>(*result) : result.error().importedItemID;
        if (made && queue_) {
          // A screenshot just taken goes first; files imported by hand or in
          // bulk take the bulk lane.
          if (source == library::ImportSourceType::automaticWatch) {
            queue_->enqueuePriority(*made);
          } else {
            queue_->enqueue(*made);
          }
        }
        if (!result) lastError_ = "Import failed: " + result.error().errorDescription();
        done(std::move(result));
        importFinished();
      });
}

void AppCoordinator::importFinished() {
  if (--importsInFlight_ > 0 || !whenImportsDrained_) return;
  auto drained = std::move(whenImportsDrained_);
  whenImportsDrained_ = nullptr;
  drained();
}

}  // namespace klipora::app
