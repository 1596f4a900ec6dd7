#include "platform/notification_center.h"

#include <gtest/gtest.h>

#include "platform/testing/manual_clock.h"

namespace klipora {
namespace {

TEST(NotificationCenterTest, ObserversRunOnTheMainLoopAndRemovalWins) {
  testing::ManualExecutor main;
  NotificationCenter center(main);
  int pause = 0, categories = 0;
  center.addObserver(notifications::kPauseScheduleDidChange, [&] { ++pause; });
  auto id = center.addObserver(notifications::kCustomCategoriesDidChange, [&] { ++categories; });

  center.post(notifications::kPauseScheduleDidChange);
  center.post(notifications::kCustomCategoriesDidChange);
  EXPECT_EQ(pause, 0);  // nothing runs until the main loop does
  center.removeObserver(id);
  main.runAll();
  EXPECT_EQ(pause, 1);
  EXPECT_EQ(categories, 0);  // removed before its posted call ran
}

}  // namespace
}  // namespace klipora
