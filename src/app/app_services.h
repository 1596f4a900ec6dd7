// The long-lived services the coordinator drives, seen through the few calls
// it needs. The processing queue, the folder watcher, the bulk import and the
// announcement poller each get an adapter here when they are built; until
// then their factory is empty, the coordinator runs without them, and each
// step that needed one logs a "skipped — no …" line.
//
// Thread rules: every call is made on the main thread.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "platform/uuid.h"
#include "processing/processing_queue.h"

namespace klipora::app {

class AppCoordinator;
class CustomCategoryService;

class ProcessingQueueService {
 public:
  virtual ~ProcessingQueueService() = default;
  virtual void start() = 0;
  // Stops taking work and stops the watchdog; items in flight finish.
  virtual void stop() = 0;
  virtual bool isRunning() const = 0;
  virtual void enqueue(const UUID& itemID) = 0;          // bulk lane
  virtual void enqueuePriority(const UUID& itemID) = 0;  // priority lane
  // The item was put back to pending: a run under way writes nothing more.
  virtual void supersede(const UUID& itemID) { (void)itemID; }
  // Items that no lane holds although their processing never finished.
  virtual std::vector<UUID> orphanedItemIDs() = 0;
  // Items waiting in a lane or in flight.
  virtual std::vector<UUID> queuedItemIDs() const = 0;
  // Drops an item that went to the trash or left the library.
  virtual void remove(const UUID& itemID) = 0;
  // Another process changed the library (user categories, filings).
  virtual void libraryChangedElsewhere() {}
  // Lanes, items in flight, late text, the retry pass.
  virtual processing::ProcessingQueueStatus status() const { return {}; }
  // The user's categories, learning and sorting beside the queue (null:
  // none in this build).
  virtual CustomCategoryService* customCategories() { return nullptr; }
};

class IngestionWatcherService {
 public:
  virtual ~IngestionWatcherService() = default;
  virtual bool isWatching() const = 0;
  // Watches the enabled watched folders of the store (again).
  virtual void reloadFolders() = 0;
  // Closes every folder source and stops the event stream.
  virtual void stopAll() = 0;
  // Folders watched now, and watched folders waiting to appear.
  virtual std::vector<std::string> watchedFolders() const { return {}; }
  virtual std::vector<std::string> awaitedFolders() const { return {}; }
};

class BulkImportService {
 public:
  virtual ~BulkImportService() = default;
  virtual void cancelAll() = 0;
};

class AnnouncementPollerService {
 public:
  virtual ~AnnouncementPollerService() = default;
  virtual void startPolling() = 0;
  virtual void stopPolling() = 0;
};

// How the coordinator makes the services this build has. Each factory is
// called once, at its step of AppCoordinator::start().
struct AppServiceFactories {
  std::function<std::unique_ptr<IngestionWatcherService>(AppCoordinator&)> makeWatcher;
  std::function<std::unique_ptr<ProcessingQueueService>(AppCoordinator&)> makeProcessingQueue;
  std::function<std::unique_ptr<BulkImportService>(AppCoordinator&)> makeBulkImport;
  std::function<std::unique_ptr<AnnouncementPollerService>(AppCoordinator&)> makeAnnouncementPoller;
};

}  // namespace klipora::app
