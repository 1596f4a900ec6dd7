#include "ingestion/watcher_pause_schedule.h"

#include <gtest/gtest.h>

#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::ingestion {
namespace {

class WatcherPauseScheduleTest : public ::testing::Test {
 protected:
  WatcherPauseScheduleTest() {
    schedule_.onChange = [this] { ++changes_; };
  }
  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  UserDefaults defaults_{fs_, "/defaults.json"};
  WatcherPauseSchedule schedule_{defaults_, clock_, &clock_};
  int changes_ = 0;
};

TEST_F(WatcherPauseScheduleTest, PausesEndOnTimeAndOnlyRealChangesAreAnnounced) {
  ASSERT_TRUE(schedule_.setPaused(WatcherPauseSchedule::kFarFuture).ok());
  EXPECT_EQ(schedule_.statusDescription(), "Screenshot watching is paused");
  clock_.advance(365 * 86400.0);
  EXPECT_TRUE(schedule_.isPaused());
  (void)schedule_.setPaused(WatcherPauseSchedule::kFarFuture);
  EXPECT_EQ(changes_, 1);

  (void)schedule_.setPaused(clock_.now().addingTimeInterval(5));
  EXPECT_EQ(schedule_.statusDescription()->rfind("Paused until ", 0), 0u);
  clock_.advance(4.9);
  EXPECT_TRUE(schedule_.isPaused());
  clock_.advance(0.1);
  EXPECT_FALSE(schedule_.isPaused());
  EXPECT_FALSE(schedule_.statusDescription());
  EXPECT_FALSE(defaults_.doubleForKey(WatcherPauseSchedule::kPausedUntilKey));
  EXPECT_EQ(changes_, 3);

  // An end already past still gets its second.
  (void)schedule_.setPaused(clock_.now().addingTimeInterval(-10));
  EXPECT_FALSE(schedule_.isPaused());
  EXPECT_EQ(clock_.pendingTimers(), 1u);
  clock_.advance(1);
  EXPECT_FALSE(schedule_.pausedUntil());

  (void)schedule_.pauseUntilTomorrow();
  EXPECT_EQ(schedule_.statusDescription(), "Paused until tomorrow");
}

TEST_F(WatcherPauseScheduleTest, AStoredPauseIsKeptOnlyWhileItLasts) {
  (void)defaults_.setDouble(WatcherPauseSchedule::kPausedUntilKey,
                            clock_.now().addingTimeInterval(60).timeIntervalSince1970());
  schedule_.load();
  EXPECT_TRUE(schedule_.isPaused());
  clock_.advance(60);
  EXPECT_FALSE(schedule_.isPaused());

  (void)defaults_.setDouble(WatcherPauseSchedule::kPausedUntilKey,
                            clock_.now().addingTimeInterval(-60).timeIntervalSince1970());
  schedule_.load();
  EXPECT_FALSE(schedule_.pausedUntil());
  EXPECT_FALSE(defaults_.doubleForKey(WatcherPauseSchedule::kPausedUntilKey));
}

}  // namespace
}  // namespace klipora::ingestion
