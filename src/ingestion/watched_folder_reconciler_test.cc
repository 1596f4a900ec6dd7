#include "ingestion/watched_folder_reconciler.h"

#include <gtest/gtest.h>

#include "ingestion/screenshot_evidence.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::ingestion {
namespace {

class FolderScanTest : public ::testing::Test {
 protected:
  FolderScanTest() {
    request_.folderPath = "/home/u/Pictures";
    request_.libraryPrefix = "/home/u/Pictures/Klipora";
    request_.isKnown = [](const std::string& p) { return p.ends_with("known.png"); };
    request_.isTombstoned = [](const std::string& p) { return p.ends_with("thrown.png"); };
    const Date now = clock_.now();
    for (const char* name :
         {"Screenshot_20240501_102030.png", "holiday.jpg", "notes.txt", "known.png", "thrown.png",
          ".hidden.png", "Klipora/Originals/copy.png", "2024/Screenshot_20240502_102030.png",
          ".cache/Screenshot_20240503_102030.png"}) {
      fs_.addFile(joinPath(request_.folderPath, name), "image", now);
    }
    fs_.addFile("/home/u/Pictures/marked.png", "image", now);
    fs_.setExtendedAttribute("/home/u/Pictures/marked.png", kScreenCaptureAttribute, "1");
    fs_.addFile("/home/u/Pictures/Screenshot_20200101_102030.png", "image",
                now.addingTimeInterval(-86400));
    request_.since = now.addingTimeInterval(-60);
  }
  std::vector<std::string> run() { return scan(fs_, request_, &stats_); }

  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  testing::ScopedLogCapture log_;
  ScanRequest request_;
  ScanStats stats_;
};

TEST_F(FolderScanTest, EachEntryIsCountedUnderTheFirstRuleThatRejectsIt) {
  EXPECT_EQ(run(), (std::vector<std::string>{"/home/u/Pictures/Screenshot_20240501_102030.png",
                                             "/home/u/Pictures/holiday.jpg",
                                             "/home/u/Pictures/marked.png"}));
  EXPECT_EQ(stats_.seen, 9);
  EXPECT_EQ(stats_.ext, 1);
  EXPECT_EQ(stats_.library, 1);  // the library folder, not entered
  EXPECT_EQ(stats_.known, 1);
  EXPECT_EQ(stats_.tombstoned, 1);
  EXPECT_EQ(stats_.notScreenshot, 1);  // the dot-file
  EXPECT_EQ(stats_.since, 1);
  EXPECT_TRUE(log_.contains("• Screenshot_20200101_102030.png  ts="));
  EXPECT_TRUE(log_.contains("(86340.0s before cutoff)"));

  // In a screenshot folder of the system a file must show its tool; with
  // subfolders, dot-folders stay unvisited.
  request_.requireScreenshotEvidence = true;
  request_.recursive = true;
  EXPECT_EQ(run(), (std::vector<std::string>{"/home/u/Pictures/2024/Screenshot_20240502_102030.png",
                                             "/home/u/Pictures/Screenshot_20240501_102030.png",
                                             "/home/u/Pictures/marked.png"}));
  EXPECT_EQ(stats_.notScreenshot, 2);

  request_.cap = 1;
  EXPECT_EQ(run().size(), 1u);
  EXPECT_TRUE(stats_.capped);

  request_.folderPath = "/home/u/Gone";
  EXPECT_TRUE(run().empty());
  EXPECT_TRUE(log_.contains("[Klipora][Reconcile]   scan abort: folder does not exist at "
                            "/home/u/Gone"));
}

}  // namespace
}  // namespace klipora::ingestion
