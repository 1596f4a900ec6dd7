#include "app/app_coordinator.h"

#include "app/app_test_fixture.h"

namespace klipora::app {
namespace {

using library::ProcessingState;

TEST_F(CoordinatorTest, StuckItemsAreListedAndRequeuedButTrashedOnesAreNot) {
  std::vector<UUID> stuck;
  for (int i = 0; i < 25; ++i) stuck.push_back(addItem(ProcessingState::ocrComplete)->id);
  auto trashed = addItem(ProcessingState::pending, /*trashed=*/true);
  addItem(ProcessingState::complete);

  AppCoordinator coordinator(env(), &context(), services());
  coordinator.start();

  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] sweep diagnostic: total=27 nonTerminal=25"));
  EXPECT_EQ(log_.matching("[Klipora][Reconcile]   non-terminal item id=").size(), 20u);
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile]   … and 5 more"));
  EXPECT_TRUE(log_.contains(
      "[Klipora][Reconcile] requeueing 25 item(s) stuck in non-terminal processing state"));
  EXPECT_EQ(log_.matching("[Klipora][Reconcile]   → enqueue id=").size(), 25u);
  EXPECT_EQ(queue_->bulk, stuck);  // oldest first; the trashed one is not among them
  EXPECT_EQ(queue_->starts, 1);
}

TEST_F(CoordinatorTest, MissingServicesAreSkippedWithTheirLogLines) {
  AppCoordinator coordinator(env(), &context());
  coordinator.start();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] sweep skipped — no processingQueue"));
  EXPECT_TRUE(log_.contains("[Klipora][Boot] orphan sweep skipped — no processingQueue"));

  AppCoordinator headless(env(), nullptr);
  headless.start();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] sweep skipped — no modelContext"));
  EXPECT_EQ(headless.storageIfReady(), nullptr);
}

TEST_F(CoordinatorTest, StartWatchesTheFreeSpaceOfTheLibraryVolume) {
  fs_.setCapacity({.freeBytes = 200LL << 20, .totalBytes = 500LL << 30});
  AppCoordinator coordinator(env(), &context());
  coordinator.start();
  runUntilIdle();
  ASSERT_NE(coordinator.diskSpace(), nullptr);
  EXPECT_EQ(coordinator.diskSpace()->freeBytes(), 200LL << 20);
  EXPECT_EQ(coordinator.diskSpace()->severity(), library::DiskSpaceMonitor::Severity::critical);
  EXPECT_TRUE(log_.contains("[Klipora][Library] critical: "));
  fs_.setCapacity({.freeBytes = 100LL << 30, .totalBytes = 500LL << 30});
  clock_.advance(60);  // the next refresh
  runUntilIdle();
  EXPECT_EQ(coordinator.diskSpace()->severity(), library::DiskSpaceMonitor::Severity::ok);
}

TEST_F(CoordinatorTest, TitleRepairRunsOnlyOnce) {
  auto generated = addItem(ProcessingState::complete);
  generated->generatedTitle = "Invoice from ACME";
  generated->userTitle = "Invoice from ACME ";
  auto firstLine = addItem(ProcessingState::complete);
  firstLine->ocrText = "def main():\n  pass";
  firstLine->userTitle = "def main():";
  auto typed = addItem(ProcessingState::complete);
  typed->generatedTitle = "Invoice";
  typed->userTitle = "Rent for May";
  ASSERT_TRUE(context().save().ok());

  AppCoordinator(env(), &context()).start();
  EXPECT_FALSE(generated->userTitle);
  EXPECT_FALSE(firstLine->userTitle);
  EXPECT_EQ(typed->userTitle, "Rent for May");
  EXPECT_TRUE(log_.contains("cleared 2 auto-generated title(s) saved as user titles"));
  EXPECT_TRUE(defaults_.boolForKey(AppCoordinator::kRepairedTitlesKey));

  generated->userTitle = "Invoice from ACME";
  ASSERT_TRUE(context().save().ok());
  log_.clear();
  AppCoordinator(env(), &context()).start();
  EXPECT_EQ(generated->userTitle, "Invoice from ACME");
  EXPECT_FALSE(log_.contains("auto-generated title"));
}

TEST_F(CoordinatorTest, UnusableChosenFolderFallsBackForTheSession) {
  struct Case {
    const char* setup;
    library::LibraryFallbackNotice::Reason reason;
    const char* flags;
  };
  for (Case c : {Case{"missing", library::LibraryFallbackNotice::Reason::missing,
                      "exists=NO, dir=NO, writable=NO"},
                 Case{"file", library::LibraryFallbackNotice::Reason::notADirectory,
                      "exists=YES, dir=NO, writable=NO"},
                 Case{"readOnly", library::LibraryFallbackNotice::Reason::notWritable,
                      "exists=YES, dir=YES, writable=NO"}}) {
    SCOPED_TRACE(c.setup);
    std::string chosen = std::string("/chosen-") + c.setup;
    if (std::string(c.setup) == "file") fs_.addFile(chosen, "not a folder");
    if (std::string(c.setup) == "readOnly") {
      ASSERT_TRUE(fs_.createDirectories(chosen).ok());
      fs_.setReadOnlyDirectory(chosen, true);
    }
    settings().libraryFolder = chosen;
    ASSERT_TRUE(context().save().ok());

    AppCoordinator coordinator(env(), &context(), services());
    coordinator.start();
    EXPECT_EQ(coordinator.libraryRoot(), kDefaultRoot);
    ASSERT_TRUE(coordinator.fallbackNotice());
    EXPECT_EQ(coordinator.fallbackNotice()->reason, c.reason);
    EXPECT_EQ(coordinator.fallbackNotice()->configuredPath, chosen);
    EXPECT_TRUE(log_.contains("[Klipora] Custom library location unavailable at " + chosen +
                              " (" + c.flags + "). Falling back to default for this session."));
    // The start went on, and the choice stays recorded for the next one.
    EXPECT_NE(coordinator.storageIfReady(), nullptr);
    EXPECT_EQ(queue_->starts, 1);
    EXPECT_EQ((*other_->fetch<library::AppSettings>())[0]->libraryFolder, chosen);
  }
}

TEST_F(CoordinatorTest, LostVolumePausesOnceAndResumesOnce) {
  settings().automaticImportEnabled = true;
  ASSERT_TRUE(context().save().ok());
  AppCoordinator coordinator(env(), &context(), services());
  coordinator.start();
  ASSERT_EQ(watcher_->reloads, 1);
  auto expired = addItem(ProcessingState::complete, /*trashed=*/true);
  expired->deletedAt = clock_.now().addingTimeInterval(-90 * 86'400.0);
  ASSERT_TRUE(context().save().ok());

  fs_.setReadOnlyDirectory(kDefaultRoot, true);
  mountWatch_.simulateChange();
  mountWatch_.simulateChange();
  EXPECT_EQ(log_.matching("[Klipora][Library] active library volume disappeared "
                          "(/support/Library); pausing services").size(), 1u);
  EXPECT_EQ(queue_->stops, 1);
  EXPECT_EQ(watcher_->stops, 1);
  EXPECT_TRUE(coordinator.servicesPaused());
  // Nothing is deleted or imported while paused.
  EXPECT_TRUE(coordinator.trashRetention()->runSweep().skipped);
  EXPECT_NE(*other_->fetchByKey<library::ScreenshotItem>(expired->id.uuidString()), nullptr);
  std::string refusal;
  coordinator.importFile("/in/a.png", library::ImportSourceType::manualImport, {}, {},
                         [&](ingestion::ImportResult r) { refusal = r.error().errorDescription(); });
  EXPECT_NE(refusal.find("not available"), std::string::npos);

  fs_.setReadOnlyDirectory(kDefaultRoot, false);
  mountWatch_.simulateChange();
  mountWatch_.simulateChange();
  EXPECT_EQ(log_.matching("active library volume came back (/support/Library); resuming services")
                .size(), 1u);
  EXPECT_EQ(queue_->starts, 2);
  EXPECT_EQ(watcher_->reloads, 2);
  EXPECT_TRUE(log_.contains("[Klipora][Watcher] enableAutomaticImport advanceCutoff=false"));

  // The probe timer notices too; automatic import, now off, stays off.
  settings().automaticImportEnabled = false;
  ASSERT_TRUE(context().save().ok());
  fs_.setReadOnlyDirectory(kDefaultRoot, true);
  clock_.advance(AppCoordinator::kFolderHealthProbeInterval);
  EXPECT_TRUE(coordinator.servicesPaused());
  fs_.setReadOnlyDirectory(kDefaultRoot, false);
  clock_.advance(AppCoordinator::kFolderHealthProbeInterval);
  EXPECT_FALSE(coordinator.servicesPaused());
  EXPECT_EQ(queue_->starts, 3);
  EXPECT_EQ(watcher_->reloads, 2);
}

TEST_F(CoordinatorTest, ShutDownWaitsForImportsInFlightAndSavesThem) {
  fs_.addFile("/in/shot.png", testing::FakeImageCodec::makeImage(40, 30));
  AppCoordinator coordinator(env(), &context(), services());
  coordinator.start();
  std::optional<UUID> imported;
  coordinator.importFile("/in/shot.png", library::ImportSourceType::manualImport, {}, {},
                         [&](ingestion::ImportResult r) { imported = *r; });
  std::optional<Status> saved;
  coordinator.shutDown([&](Status s) { saved = s; });
  EXPECT_FALSE(saved);
  std::string refusal;
  coordinator.importFile("/in/other.png", library::ImportSourceType::manualImport, {}, {},
                         [&](ingestion::ImportResult r) { refusal = r.error().errorDescription(); });
  EXPECT_EQ(refusal, "Klipora is stopping");

  runUntilIdle();
  ASSERT_TRUE(saved);
  EXPECT_TRUE(saved->ok());
  ASSERT_TRUE(imported);
  EXPECT_EQ(queue_->bulk, std::vector<UUID>{*imported});  // a manual import waits its turn
  EXPECT_NE(*other_->fetchByKey<library::ScreenshotItem>(imported->uuidString()), nullptr);
}

TEST_F(CoordinatorTest, ChangesFromOtherProcessesApplyAtOnce) {
  auto item = addItem(ProcessingState::pending);
  AppCoordinator coordinator(env(), &context(), services());
  coordinator.start();
  ASSERT_EQ(queue_->queued, std::vector<UUID>{item->id});

  auto theirs = *other_->fetchByKey<library::ScreenshotItem>(item->id.uuidString());
  theirs->deleted = true;
  theirs->deletedAt = clock_.now();
  auto theirSettings = (*other_->fetch<library::AppSettings>())[0];
  theirSettings->automaticImportEnabled = true;
  theirSettings->trashRetentionDays = 5;
  ASSERT_TRUE(other_->save().ok());
  // Imported here a moment ago, not saved yet: it stays queued.
  auto fresh = std::make_shared<library::ScreenshotItem>();
  context().insert(fresh);
  queue_->enqueuePriority(fresh->id);

  coordinator.handleExternalStoreChanges();
  EXPECT_EQ(queue_->removed, std::vector<UUID>{item->id});
  EXPECT_EQ(watcher_->reloads, 1);
  EXPECT_TRUE(log_.contains("enableAutomaticImport advanceCutoff=true"));
  EXPECT_TRUE(log_.contains("retention changed from 30 to 5 day(s); sweeping now"));
}

}  // namespace
}  // namespace klipora::app
