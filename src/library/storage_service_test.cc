#include "library/storage_service.h"

#include <gtest/gtest.h>

#include <memory>

#include "library/disk_space_monitor.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::library {
namespace {

using testing::FakeImageCodec;

class StorageServiceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(storage_.createLibraryStructure().ok()); }
  testing::MemoryFileSystem fs_;
  FakeImageCodec codec_;
  StorageService storage_{fs_, codec_, "/lib"};
};

TEST_F(StorageServiceTest, CopiesAreNamedByFreshUpperCaseUUIDsKeepingTheExtension) {
  auto png = storage_.copyToLibrary("/shots/a.png", "png bytes");
  auto bare = storage_.copyToLibrary("/shots/README", "bare");
  ASSERT_TRUE(png && bare);
  EXPECT_EQ(lastPathComponent(*png).substr(36), ".png");
  std::string name = lastPathComponent(*bare);
  ASSERT_TRUE(UUID::Parse(name));
  EXPECT_EQ(UUID::Parse(name)->uuidString(), name);
  EXPECT_EQ(deletingLastPathComponent(*bare), "/lib/Originals");

  fs_.setReadOnlyDirectory("/lib/Originals", true);
  auto denied = storage_.copyToLibrary("/shots/b.png", "x");
  ASSERT_FALSE(denied);
  EXPECT_EQ(denied.error().code(), Status::Code::kPermissionDenied);
  EXPECT_EQ(fs_.filesUnder("/lib/Originals").size(), 2u);
}

TEST_F(StorageServiceTest, ThumbnailsRefuseUnreadableAndGiganticImages) {
  UUID id = UUID::Random();
  auto thumb = storage_.generateThumbnailFromData(FakeImageCodec::makeImage(200, 100), id);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(*thumb, "/lib/Thumbnails/" + id.uuidString() + ".jpg");
  EXPECT_EQ(*fs_.readFile(*thumb), "FAKEJPEG 200 100 q80");  // never enlarged

  auto unreadable = storage_.generateThumbnailFromData("not an image", id);
  EXPECT_EQ(unreadable.error().message(), "Could not read the image file.");
  int before = codec_.thumbnailsMade;
  auto huge = storage_.generateThumbnailFromData(FakeImageCodec::makeImage(100000, 100000), id);
  EXPECT_EQ(huge.error().message(), "Failed to generate thumbnail.");
  EXPECT_EQ(codec_.thumbnailsMade, before);  // refused before any decoding
  auto broken = storage_.generateThumbnailFromData(FakeImageCodec::makeImage(9, 9, "broken"), id);
  EXPECT_EQ(broken.error().message(), "Failed to generate thumbnail.");
}

TEST_F(StorageServiceTest, CaptureDatePrefersMetadataThenTheFileSystem) {
  Date birth = Date::fromSecondsSince1970(1'650'000'000);
  fs_.addFile("/shots/a.png", "x", birth);
  ImageProperties exif;
  exif.exifDateTimeOriginal = "2024:02:29 23:59:59";
  EXPECT_EQ(storage_.fileCreationDate("/shots/a.png", exif), parseExifDate("2024:02:29 23:59:59"));
  ImageProperties otherLayout;
  otherLayout.exifDateTimeOriginal = "2024-02-29 23:59:59";
  otherLayout.tiffDateTime = "garbage";
  EXPECT_EQ(storage_.fileCreationDate("/shots/a.png", otherLayout), birth);
  EXPECT_FALSE(storage_.fileCreationDate("/shots/gone.png", std::nullopt));
}

TEST_F(StorageServiceTest, DeletingDerivedFilesToleratesFilesAlreadyGone) {
  fs_.addFile("/lib/Originals/A.png", "x");
  EXPECT_TRUE(storage_.deleteDerivedFiles("/lib/Originals/A.png", "/lib/Thumbnails/A.jpg").ok());
  EXPECT_FALSE(fs_.exists("/lib/Originals/A.png"));
}

TEST(DiskSpaceMonitorTest, SeverityBannerAndSnooze) {
  constexpr int64_t GiB = int64_t{1} << 30;
  using S = DiskSpaceMonitor::Severity;
  EXPECT_EQ(DiskSpaceMonitor::severityFor(100 * GiB, 500 * GiB), S::ok);
  EXPECT_EQ(DiskSpaceMonitor::severityFor(4 * GiB, 500 * GiB), S::warning);
  EXPECT_EQ(DiskSpaceMonitor::severityFor(GiB / 2, 500 * GiB), S::critical);
  EXPECT_EQ(DiskSpaceMonitor::severityFor(3 * GiB, 32 * GiB), S::warning);  // under 10 %
  EXPECT_EQ(DiskSpaceMonitor::severityFor(4 * GiB, 32 * GiB), S::ok);

  testing::MemoryFileSystem fs;
  fs.setCapacity({2 * GiB, 500 * GiB});
  testing::ManualClock clock;
  testing::ManualExecutor main, background;
  DiskSpaceMonitor monitor(fs, clock, clock, main, background, "/");
  monitor.start();
  monitor.start();  // idempotent: one timer
  EXPECT_EQ(clock.pendingTimers(), 1u);
  background.runAll();
  main.runAll();
  EXPECT_EQ(monitor.severity(), S::warning);
  EXPECT_TRUE(monitor.shouldShowBanner());
  EXPECT_EQ(monitor.bannerText(), "Your computer is running low on storage (2.1 GB)");
  monitor.snooze();
  EXPECT_FALSE(monitor.shouldShowBanner());
  EXPECT_EQ(monitor.snoozedUntil(), clock.now().addingTimeInterval(86'400));
  fs.setCapacity({100 * GiB, 500 * GiB});
  clock.advance(60);  // the minute timer refreshes
  background.runAll();
  main.runAll();
  EXPECT_EQ(monitor.severity(), S::ok);

  // A reading still running when its monitor goes away (a command that
  // ends at once) touches nothing of the gone monitor.
  auto brief = std::make_unique<DiskSpaceMonitor>(fs, clock, clock, main, background, "/");
  brief->start();
  brief.reset();
  EXPECT_EQ(background.runAll(), 1u);
  EXPECT_EQ(main.runAll(), 1u);
}

}  // namespace
}  // namespace klipora::library
