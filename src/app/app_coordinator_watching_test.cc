// What the coordinator does with the screenshots the watcher hands it: the
// global pause and the historical-paste rule.
#include "app/app_test_fixture.h"
#include "library/records.h"
#include "library/trash_deleted_originals_store.h"

namespace klipora::app {
namespace {

using ingestion::WatcherPauseSchedule;

class WatchingTest : public CoordinatorTest {
 protected:
  WatchingTest() {
    folder_ = std::make_shared<library::WatchedFolder>();
    folder_->displayName = "Shots";
    folder_->path = "/shots";
    folder_->createdAt = clock_.now();
    folder_->lastReconciledAt = clock_.now();
    context().insert(folder_);
    EXPECT_TRUE(context().save().ok());
    (void)fs_.createDirectories("/shots");
  }
  // A screenshot written now in the watched folder.
  std::string shoot(const std::string& name) {
    const std::string path = "/shots/" + name;
    fs_.addFile(path, testing::FakeImageCodec::makeImage(40 + shots_++, 30), clock_.now());
    return path;
  }
  int64_t items() {
    if (coordinator_) {
      EXPECT_TRUE(coordinator_->saveCoalescer()->flush().ok());
    }
    return *context().fetchCount<library::ScreenshotItem>();
  }
  AppCoordinator& start() {
    coordinator_ = std::make_unique<AppCoordinator>(env(), &context(), services());
    coordinator_->start();
    runUntilIdle();  // the pass at start
    return *coordinator_;
  }

  std::shared_ptr<library::WatchedFolder> folder_;
  std::unique_ptr<AppCoordinator> coordinator_;
  int shots_ = 0;
};

TEST_F(WatchingTest, NothingIsImportedWhilePausedAndAPauseEndsOnTime) {
  AppCoordinator& coordinator = start();
  auto& pause = coordinator.pauseSchedule();

  ASSERT_TRUE(pause.setPaused(WatcherPauseSchedule::kFarFuture).ok());
  clock_.advance(7 * 86'400.0);
  coordinator.handleNewScreenshot(shoot("a.png"), {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 0);
  EXPECT_TRUE(log_.contains(
      "[Klipora][Watcher] skip a.png — global pause active (Screenshot watching is paused)"));
  ASSERT_TRUE(pause.setPaused(std::nullopt).ok());
  coordinator.handleNewScreenshot(shoot("b.png"), {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 1);
  EXPECT_EQ(queue_->priority.size(), 1u);  // a screenshot just taken goes first

  ASSERT_TRUE(pause.setPaused(clock_.now().addingTimeInterval(5)).ok());
  coordinator.handleNewScreenshot(shoot("c.png"), {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 1);
  clock_.advance(4.9);
  EXPECT_TRUE(pause.isPaused());
  clock_.advance(0.1);
  EXPECT_FALSE(pause.pausedUntil());
  coordinator.handleNewScreenshot(shoot("d.png"), {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 2);
}

TEST_F(WatchingTest, AFileOlderThanItsFoldersLastSweepIsLeftToTheSweep) {
  AppCoordinator& coordinator = start();
  const Date cutoff = *folder_->lastReconciledAt;
  clock_.advance(60);
  fs_.addFile("/shots/restored.png", testing::FakeImageCodec::makeImage(40, 30),
              cutoff.addingTimeInterval(-3600));
  coordinator.handleNewScreenshot("/shots/restored.png", {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 0);
  EXPECT_TRUE(log_.contains("[Klipora][Watcher] skip historical paste restored.png "
                            "(mtime/ctime < folder lastReconciledAt " +
                            formatISO8601(cutoff) + ")"));
  // Outside every watched folder there is no cut-off to apply.
  fs_.addFile("/elsewhere/restored.png", testing::FakeImageCodec::makeImage(40, 30),
              cutoff.addingTimeInterval(-3600));
  coordinator.handleNewScreenshot("/elsewhere/restored.png", {}, {});
  runUntilIdle();
  EXPECT_EQ(items(), 1);
}

// The sweep of the watched folders.
class ReconciliationTest : public WatchingTest {
 protected:
  ReconciliationTest() {
    settings().automaticImportEnabled = true;
    settings().bulkImportThreshold = 20;
    EXPECT_TRUE(context().save().ok());
  }
  // Files written while nobody watched, each with its own content.
  void leave(int count, const std::string& prefix = "missed") {
    for (int i = 0; i < count; ++i) {
      fs_.addFile("/shots/" + prefix + std::to_string(i) + ".png",
                  testing::FakeImageCodec::makeImage(10 + next_++, 10), clock_.now());
    }
  }
  std::optional<Date> cutoff() {
    return (*other_->fetchByKey<library::WatchedFolder>(folder_->id.uuidString()))
        ->lastReconciledAt;
  }
  AppCoordinator::ReconciliationOutcome pass(AppCoordinator& coordinator) {
    clock_.advance(AppCoordinator::kReconciliationDebounce);
    AppCoordinator::ReconciliationOutcome outcome;
    coordinator.runReconciliationIfDue([&](const auto& o) { outcome = o; });
    runUntilIdle();
    return outcome;
  }
  int next_ = 0;
};

TEST_F(ReconciliationTest, TheFirstPassOnlyStampsAndTheGateKeepsPassesApart) {
  folder_->lastReconciledAt.reset();
  ASSERT_TRUE(context().save().ok());
  leave(500);
  clock_.advance(1);
  AppCoordinator& coordinator = start();
  EXPECT_EQ(items(), 0);
  EXPECT_EQ(cutoff(), clock_.now());
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] first-launch stamping done; returning without "
                            "scanning (next launch will catch new files)"));

  clock_.advance(12.5);
  coordinator.runReconciliationIfDue();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] skip: last pass was 12.5s ago (debounce 30s)"));
  ASSERT_TRUE(coordinator.pauseSchedule().setPaused(clock_.now().addingTimeInterval(600)).ok());
  clock_.advance(30);
  coordinator.runReconciliationIfDue();
  EXPECT_EQ(log_.matching("[Klipora][Reconcile] skip: global pause active (Paused until ").size(),
            1u);
  ASSERT_TRUE(coordinator.pauseSchedule().setPaused(std::nullopt).ok());

  // The periodic pass finds what arrived meanwhile; old files stay put.
  leave(3, "new");
  clock_.advance(AppCoordinator::kSafetyRescanInterval);
  runUntilIdle();
  EXPECT_EQ(items(), 3);
  EXPECT_EQ(queue_->bulk.size(), 3u);
  EXPECT_TRUE(log_.contains("scan stats for /shots: seen=503 accepted=3 ext=0 library=0 known=0 "
                            "tombstoned=0 notFile=0 notScreenshot=0 since=500"));
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile]     since-rejected samples (cutoff="));
}

TEST_F(ReconciliationTest, TheUserComingBackSweepsTheFolders) {
  AppCoordinator& coordinator = start();
  ASSERT_TRUE(sessionWatch_.watching());
  // Arrived while the screen was locked, on a folder that sends no events.
  clock_.advance(AppCoordinator::kReconciliationDebounce);
  leave(2);
  sessionWatch_.simulate(SessionReturn::unlocked);
  runUntilIdle();
  EXPECT_TRUE(log_.contains(
      "[Klipora][Reconcile] session unlocked: looking for what the watcher missed"));
  EXPECT_EQ(items(), 2);

  // Unlocked and woken within moments: one pass.
  clock_.advance(4);
  sessionWatch_.simulate(SessionReturn::resumed);
  runUntilIdle();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] skip: last pass was 4.0s ago (debounce 30s)"));
  coordinator.stop();
  EXPECT_FALSE(sessionWatch_.watching());

  // Where the system does not tell, the sweeps at start and on a timer remain.
  sessionWatch_.failStart = true;
  start();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] no word when the user comes back (no bus in "
                            "this test); sweeping at start, every 10 min and on `klipora scan`"));
}

TEST_F(ReconciliationTest, AboveTheThresholdTheResultWaitsForTheUser) {
  AppCoordinator& coordinator = start();
  leave(20);
  auto outcome = pass(coordinator);
  EXPECT_EQ(outcome.kind, AppCoordinator::ReconciliationOutcome::Kind::imported);
  EXPECT_EQ(outcome.imported, 20);
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] auto-importing 20 (≤ threshold 20)"));
  EXPECT_EQ(cutoff(), clock_.now());

  clock_.advance(1);
  leave(21, "more");
  outcome = pass(coordinator);
  EXPECT_EQ(outcome.kind, AppCoordinator::ReconciliationOutcome::Kind::pending);
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] 21 > threshold 20 — surfacing banner"));
  EXPECT_EQ(items(), 20);
  ASSERT_TRUE(coordinator.pendingReconciliation());
  coordinator.acceptPendingReconciliation([&](const auto& o) { outcome = o; });
  runUntilIdle();
  EXPECT_EQ(outcome.imported, 21);
  EXPECT_EQ(items(), 41);
  EXPECT_FALSE(coordinator.pendingReconciliation());
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] auto-import done: imported=21 skipped=0"));
}

TEST_F(ReconciliationTest, AFolderIsStampedOnlyOnceEveryFileIsSettled) {
  AppCoordinator& coordinator = start();
  const Date before = *cutoff();
  leave(2);
  fs_.addFile("/shots/broken.png", "not an image", clock_.now());
  auto outcome = pass(coordinator);
  EXPECT_EQ(outcome.imported, 2);
  EXPECT_EQ(outcome.failed, 1);
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile]   skip broken.png: "));
  EXPECT_TRUE(log_.contains(
      "[Klipora][Reconcile] not stamping “Shots”: 1 file(s) failed, will retry next pass"));
  EXPECT_EQ(cutoff(), before);

  // Retried next pass; the two imported are known now.
  fs_.addFile("/shots/broken.png", testing::FakeImageCodec::makeImage(99, 99), clock_.now());
  outcome = pass(coordinator);
  EXPECT_EQ(outcome.imported, 1);
  EXPECT_TRUE(log_.contains("accepted=1 ext=0 library=0 known=2"));
  EXPECT_EQ(cutoff(), clock_.now());

  // A copy of what the library holds is no failure: the folder is stamped.
  clock_.advance(1);
  fs_.addFile("/shots/copy.png", testing::FakeImageCodec::makeImage(99, 99), clock_.now());
  outcome = pass(coordinator);
  EXPECT_EQ(outcome.duplicates, 1);
  EXPECT_EQ(cutoff(), clock_.now());
}

TEST_F(ReconciliationTest, ThrownAwayOriginalsAndOldFilesAreNeverBroughtBack) {
  AppCoordinator& coordinator = start();
  leave(1, "thrown");
  library::DeletedOriginalsStore tombstones(context());
  library::ScreenshotItem removed;
  removed.sourcePath = "/shots/thrown0.png";
  removed.checksum = "abc";
  tombstones.record(removed, clock_.now());
  ASSERT_TRUE(context().save().ok());
  fs_.addFile("/shots/old.png", testing::FakeImageCodec::makeImage(5, 5),
              clock_.now().addingTimeInterval(-60));
  fs_.addFile("/shots/notes.txt", "text", clock_.now());
  auto outcome = pass(coordinator);
  EXPECT_EQ(outcome.kind, AppCoordinator::ReconciliationOutcome::Kind::nothingNew);
  EXPECT_EQ(items(), 0);
  EXPECT_TRUE(log_.contains("seen=3 accepted=0 ext=1 library=0 known=0 tombstoned=1 notFile=0 "
                            "notScreenshot=0 since=1"));

  // Asked for every unimported file, the cut-off does not apply; the
  // thrown-away file stays out.
  coordinator.scanFoldersForUnimportedFiles({*folder_}, [&](const auto& o) { outcome = o; });
  runUntilIdle();
  EXPECT_EQ(outcome.imported, 1);
  EXPECT_EQ(items(), 1);
}

TEST_F(ReconciliationTest, SwitchingImportOnAdvancesTheCutOff) {
  settings().automaticImportEnabled = false;
  ASSERT_TRUE(context().save().ok());
  AppCoordinator& coordinator = start();
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile] skip: automatic import is off"));
  clock_.advance(3600);
  leave(2);
  auto theirs = (*other_->fetch<library::AppSettings>())[0];
  theirs->automaticImportEnabled = true;
  ASSERT_TRUE(other_->save().ok());
  coordinator.handleExternalStoreChanges();
  EXPECT_TRUE(log_.contains("[Klipora][Watcher] stampAllFoldersReconciledNow: advancing 1 "
                            "folder(s) to " + formatISO8601(clock_.now())));
  EXPECT_EQ(cutoff(), clock_.now());
}

}  // namespace
}  // namespace klipora::app
