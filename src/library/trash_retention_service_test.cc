#include "library/trash_retention_service.h"

#include <gtest/gtest.h>

#include "library/app_settings.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "library/settings_store.h"
#include "library/trash_deleted_originals_store.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::library {
namespace {

using testing::FaultInjectingFileSystem;
constexpr double kDay = 86'400;

// Real SQLite in a scratch folder; the library's files in memory, behind a
// fault injector.
class TrashRetentionTest : public ::testing::Test {
 protected:
  TrashRetentionTest() {
    container_ = *KliporaModelContainer::make(memory_, clock_, dir_.file("Klipora.store"));
    EXPECT_TRUE(storage_.createLibraryStructure().ok());
  }
  ModelContext& context() { return container_->mainContext(); }

  // An item with a library copy and a thumbnail, in the trash since `trashedAt`.
  std::shared_ptr<ScreenshotItem> addItem(std::optional<Date> trashedAt, const std::string& name) {
    auto item = std::make_shared<ScreenshotItem>();
    item->originalFilename = name + ".png";
    item->sourcePath = "/home/u/Pictures/" + name + ".png";
    item->checksum = "sum-" + name;
    item->libraryPath = joinPath(storage_.originalsFolder(), item->id.uuidString() + ".png");
    item->thumbnailPath = storage_.thumbnailPath(item->id);
    memory_.addFile(item->libraryPath, "copy");
    memory_.addFile(*item->thumbnailPath, "thumb");
    item->deleted = trashedAt.has_value();
    item->deletedAt = trashedAt;
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item;
  }
  void setRetention(int days) {
    auto settings = *fetchOrCreateSettings(context());
    settings->trashRetentionDays = days;
    ASSERT_TRUE(context().save().ok());
  }
  bool rowExists(const UUID& id) {
    FetchDescriptor d;
    d.predicate = "id = ?";
    d.arguments = {SqlValue(id.uuidString())};
    return *context().fetchCount<ScreenshotItem>(d) == 1;
  }
  TrashRetentionService makeService() {
    return TrashRetentionService(
        context(), [this] { return ready_ ? &storage_ : nullptr; }, noEdits_, clock_, clock_);
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::MemoryFileSystem memory_;
  FaultInjectingFileSystem fs_{memory_};
  testing::FakeImageCodec codec_;
  StorageService storage_{fs_, codec_, "/lib"};
  NoMarkupEdits noEdits_;
  std::shared_ptr<ModelContainer> container_;
  bool ready_ = true;
  testing::ScopedLogCapture log_;
};

TEST_F(TrashRetentionTest, CutOffIsWholeDaysAndInclusiveToTheSecond) {
  Date now = clock_.now();
  auto due = addItem(now.addingTimeInterval(-30 * kDay), "due");
  auto young = addItem(now.addingTimeInterval(-30 * kDay + 1), "young");
  auto live = addItem(std::nullopt, "live");

  auto report = makeService().runSweep();

  EXPECT_EQ(report.removed, 1);
  EXPECT_EQ(report.retentionDays, 30);
  EXPECT_FALSE(rowExists(due->id));
  EXPECT_TRUE(rowExists(young->id));
  EXPECT_TRUE(rowExists(live->id));
  EXPECT_FALSE(memory_.exists(due->libraryPath));
  EXPECT_FALSE(memory_.exists(*due->thumbnailPath));
  EXPECT_TRUE(memory_.exists(young->libraryPath));
  // The original is remembered so the folder sweep does not bring it back.
  DeletedOriginalsStore originals(context());
  EXPECT_TRUE(originals.containsChecksum("sum-due"));
  EXPECT_TRUE(originals.containsSourcePath("/home/u/Pictures/due.png"));
  EXPECT_FALSE(originals.containsChecksum("sum-young"));
  EXPECT_FALSE(context().hasChanges());
  EXPECT_TRUE(log_.contains(
      "[Klipora][TrashRetention] Permanently removed 1 item(s) older than 30 day(s)."));
}

TEST_F(TrashRetentionTest, RetentionComesFromSettingsOrDefaultsTo30) {
  EXPECT_EQ(TrashRetentionService::retentionDays(context()), 30);  // no row yet
  setRetention(7);
  EXPECT_EQ(TrashRetentionService::retentionDays(context()), 7);
  auto item = addItem(clock_.now().addingTimeInterval(-7 * kDay), "week");
  EXPECT_EQ(makeService().runSweep().removed, 1);
  EXPECT_FALSE(rowExists(item->id));
}

TEST_F(TrashRetentionTest, ZeroOrNegativeRetentionTurnsRemovalOff) {
  auto old = addItem(clock_.now().addingTimeInterval(-400 * kDay), "old");
  for (int days : {0, -5}) {
    setRetention(days);
    auto report = makeService().runSweep();
    EXPECT_TRUE(report.skipped);
    EXPECT_EQ(report.removed, 0);
    EXPECT_TRUE(rowExists(old->id));
    EXPECT_TRUE(memory_.exists(old->libraryPath));
  }
  EXPECT_TRUE(log_.contains("Retention is -5 day(s); automatic removal is off."));
}

TEST_F(TrashRetentionTest, RowGoesEvenWhenTheLibraryCopyIsAlreadyGone) {
  auto item = addItem(clock_.now().addingTimeInterval(-31 * kDay), "gone");
  ASSERT_TRUE(memory_.removeFile(item->libraryPath).ok());
  EXPECT_EQ(makeService().runSweep().removed, 1);
  EXPECT_FALSE(rowExists(item->id));
  EXPECT_FALSE(memory_.exists(*item->thumbnailPath));
}

TEST_F(TrashRetentionTest, UndeletableThumbnailKeepsTheItemForTheNextSweep) {
  auto stuck = addItem(clock_.now().addingTimeInterval(-31 * kDay), "stuck");
  auto other = addItem(clock_.now().addingTimeInterval(-31 * kDay), "other");
  fs_.failWhen(FaultInjectingFileSystem::Op::kRemove, stuck->id.uuidString() + ".jpg",
               Status::PermissionDenied("thumbnail is read-only"));

  auto report = makeService().runSweep();
  EXPECT_EQ(report.removed, 1);
  EXPECT_EQ(report.kept, 1);
  EXPECT_FALSE(rowExists(other->id));
  // Nothing that a restore needs was touched.
  EXPECT_TRUE(rowExists(stuck->id));
  EXPECT_TRUE(memory_.exists(stuck->libraryPath));
  EXPECT_FALSE(DeletedOriginalsStore(context()).containsChecksum("sum-stuck"));
  EXPECT_TRUE(log_.contains("keeping " + stuck->id.uuidString() +
                            " in the trash for the next sweep: thumbnail"));

  fs_.clearFaults();
  EXPECT_EQ(makeService().runSweep().removed, 1);
  EXPECT_FALSE(rowExists(stuck->id));
}

TEST_F(TrashRetentionTest, FileOutsideTheLibraryKeepsItsItem) {
  auto item = addItem(clock_.now().addingTimeInterval(-31 * kDay), "elsewhere");
  item->libraryPath = "/media/disk/Library/Originals/x.png";
  ASSERT_TRUE(context().save().ok());
  EXPECT_EQ(makeService().runSweep().kept, 1);
  EXPECT_TRUE(rowExists(item->id));
}

TEST_F(TrashRetentionTest, SkipsWhileStorageIsNotReady) {
  auto item = addItem(clock_.now().addingTimeInterval(-31 * kDay), "paused");
  ready_ = false;
  EXPECT_TRUE(makeService().runSweep().skipped);
  EXPECT_TRUE(rowExists(item->id));
  EXPECT_TRUE(log_.contains("[Klipora][TrashRetention] Skipping sweep: storageService not ready."));
}

TEST_F(TrashRetentionTest, StartSweepsAtOnceThenEveryDay) {
  auto expired = addItem(clock_.now().addingTimeInterval(-40 * kDay), "expired");
  auto later = addItem(clock_.now().addingTimeInterval(-29.5 * kDay), "later");
  auto service = makeService();
  service.start();
  EXPECT_FALSE(rowExists(expired->id));
  EXPECT_TRUE(rowExists(later->id));
  service.start();  // a second start replaces the timer
  EXPECT_EQ(clock_.pendingTimers(), 1u);
  clock_.advance(kDay - 1);
  EXPECT_TRUE(rowExists(later->id));
  clock_.advance(1);
  EXPECT_FALSE(rowExists(later->id));
  service.stop();
  EXPECT_EQ(clock_.pendingTimers(), 0u);
}

}  // namespace
}  // namespace klipora::library
