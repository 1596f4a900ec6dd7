// What the coordinator's tests share: fakes of the later services that
// record every call, and a fixture with a real store in a scratch folder,
// the library's files in memory and time driven by hand.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>

#include "app/app_coordinator.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "library/settings_store.h"
#include "platform/testing/fake_daemon_platform.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::app {

class FakeQueue final : public ProcessingQueueService {
 public:
  void start() override { ++starts, running = true; }
  void stop() override { ++stops, running = false; }
  bool isRunning() const override { return running; }
  void enqueue(const UUID& id) override { bulk.push_back(id), queued.push_back(id); }
  void enqueuePriority(const UUID& id) override { priority.push_back(id), queued.push_back(id); }
  std::vector<UUID> orphanedItemIDs() override { return orphans; }
  std::vector<UUID> queuedItemIDs() const override { return queued; }
  void remove(const UUID& id) override {
    removed.push_back(id);
    queued.erase(std::remove(queued.begin(), queued.end(), id), queued.end());
  }

  int starts = 0, stops = 0;
  bool running = false;
  std::vector<UUID> bulk, priority, orphans, queued, removed;
};

class FakeWatcher final : public IngestionWatcherService {
 public:
  bool isWatching() const override { return watching; }
  void reloadFolders() override { ++reloads, watching = true; }
  void stopAll() override { ++stops, watching = false; }
  bool watching = false;
  int reloads = 0, stops = 0;
};

class CoordinatorTest : public ::testing::Test {
 protected:
  static constexpr char kDefaultRoot[] = "/support/Library";

  CoordinatorTest() {
    container_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
    other_ = *container_->newContext();
    EXPECT_TRUE(fs_.createDirectories("/support").ok());
  }
  library::ModelContext& context() { return container_->mainContext(); }
  AppEnvironment env() {
    return AppEnvironment{.fileSystem = fs_,
                          .imageCodec = codec_,
                          .clock = clock_,
                          .timers = clock_,
                          .mainLoop = main_,
                          .background = background_,
                          .userDefaults = defaults_,
                          .markupEdits = noEdits_,
                          .mountWatch = &mountWatch_,
                          .sessionWatch = &sessionWatch_,
                          .supportFolder = "/support",
                          .defaultLibraryRoot = kDefaultRoot};
  }
  AppServiceFactories services() {
    AppServiceFactories f;
    f.makeProcessingQueue = [this](AppCoordinator&) {
      auto q = std::make_unique<FakeQueue>();
      queue_ = q.get();
      return q;
    };
    f.makeWatcher = [this](AppCoordinator&) {
      auto w = std::make_unique<FakeWatcher>();
      watcher_ = w.get();
      return w;
    };
    return f;
  }
  std::shared_ptr<library::ScreenshotItem> addItem(library::ProcessingState state,
                                                   bool trashed = false) {
    auto item = std::make_shared<library::ScreenshotItem>();
    item->originalFilename = "shot.png";
    item->importedAt = clock_.now().addingTimeInterval(imported_++);
    item->setProcessingState(state);
    if (trashed) item->deleted = true, item->deletedAt = clock_.now();
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item;
  }
  library::AppSettings& settings() { return **library::fetchOrCreateSettings(context()); }
  void runUntilIdle() {
    while (background_.runAll() + main_.runAll() > 0) {
    }
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::ManualExecutor main_, background_;
  testing::MemoryFileSystem fs_;
  testing::FakeImageCodec codec_;
  testing::FakeMountTableWatch mountWatch_;
  testing::FakeSessionActivityWatch sessionWatch_;
  UserDefaults defaults_{fs_, "/support/defaults.json"};
  library::NoMarkupEdits noEdits_;
  std::shared_ptr<library::ModelContainer> container_;
  std::unique_ptr<library::ModelContext> other_;  // another process's connection
  int imported_ = 0;
  FakeQueue* queue_ = nullptr;
  FakeWatcher* watcher_ = nullptr;
  testing::ScopedLogCapture log_;
};

}  // namespace klipora::app
