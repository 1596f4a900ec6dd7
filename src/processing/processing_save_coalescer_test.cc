#include "processing/processing_save_coalescer.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::processing {
namespace {

class ProcessingSaveCoalescerTest : public ::testing::Test {
 protected:
  void change() {
    context().insert(std::make_shared<library::ScreenshotItem>());
    saver_.scheduleSave();
  }
  library::ModelContext& context() { return container_->mainContext(); }
  // Counted on a second connection: what other processes would see.
  int64_t stored() {
    auto reader = *container_->newContext();
    return *reader->fetchCount<library::ScreenshotItem>();
  }

  testing::MemoryFileSystem fs_;
  testing::ManualClock clock_;
  testing::TempDir dir_;
  std::shared_ptr<library::ModelContainer> container_ =
      *library::KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
  ProcessingSaveCoalescer saver_{container_->mainContext(), clock_};
};

TEST_F(ProcessingSaveCoalescerTest, SavesAfterAQuietSpellAndEachNewChangeRestartsIt) {
  change();
  clock_.advance(0.5);
  change();
  clock_.advance(0.5);
  EXPECT_EQ(stored(), 0);  // the second change pushed the save back
  clock_.advance(0.1);
  EXPECT_EQ(stored(), 2);
  EXPECT_EQ(saver_.savesPerformed(), 1);
  EXPECT_EQ(saver_.dirtyCount(), 0);
}

TEST_F(ProcessingSaveCoalescerTest, TwentyFiveChangesSaveAtOnceAndFlushWritesTheRest) {
  for (int i = 0; i < 24; ++i) change();
  EXPECT_EQ(stored(), 0);
  change();
  EXPECT_EQ(stored(), 25);
  EXPECT_EQ(clock_.pendingTimers(), 0u);
  change();
  ASSERT_TRUE(saver_.flush().ok());
  EXPECT_EQ(stored(), 26);
  EXPECT_EQ(clock_.pendingTimers(), 0u);
  EXPECT_EQ(saver_.savesPerformed(), 2);
}

}  // namespace
}  // namespace klipora::processing
