#include "library/orphan_files.h"

#include <gtest/gtest.h>

#include <set>

#include "library/copies_in_flight.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::library {
namespace {

constexpr char kRoot[] = "/lib";

class OrphanFilesTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(storage_.createLibraryStructure().ok()); }

  // A file in `folder` last written `age` seconds ago.
  std::string addFile(const std::string& folder, const std::string& name, double age) {
    std::string path = joinPath(folder, name);
    fs_.addFile(path, "x", clock_.now().addingTimeInterval(-age));
    return path;
  }
  void addItem(const std::string& copy, std::optional<std::string> thumbnail, bool save = true) {
    auto item = std::make_shared<ScreenshotItem>();
    item->libraryPath = copy;
    item->thumbnailPath = thumbnail;
    context().insert(item);
    if (save) {
      ASSERT_TRUE(context().save().ok());
    }
  }
  ModelContext& context() { return container_->mainContext(); }

  testing::MemoryFileSystem fs_;
  testing::FakeImageCodec codec_;
  testing::ManualClock clock_;
  testing::TempDir dir_;
  testing::ScopedLogCapture log_;
  std::shared_ptr<ModelContainer> container_ =
      *KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
  StorageService storage_{fs_, codec_, kRoot};
};

TEST_F(OrphanFilesTest, RemovesOnlyOldFilesThatNoRecordNames) {
  const std::string originals = storage_.originalsFolder(), thumbs = storage_.thumbnailsFolder();
  std::string kept = addFile(originals, "A.png", 3600);
  std::string keptThumb = addFile(thumbs, "A.jpg", 3600);
  std::string unsaved = addFile(originals, "B.png", 3600);  // its record is not saved yet
  // Named under another root: a library moved elsewhere keeps its file names.
  addItem("/old/place/Originals/A.png", "/old/place/Thumbnails/A.jpg");
  addItem(joinPath(originals, "B.png"), std::nullopt, /*save=*/false);
  std::string lost = addFile(originals, "LOST.png", 3600);
  std::string lostThumb = addFile(thumbs, "LOST.jpg", kOrphanMinimumAge);
  std::string temp = addFile(thumbs, "C.jpg.tmp-123", 7200);
  std::string inFlight = addFile(originals, "NEW.png", 30);  // another import is copying it
  ASSERT_TRUE(fs_.createDirectories(joinPath(originals, "folder")).ok());

  auto counts = sweepOrphanFiles(context(), storage_, clock_);
  ASSERT_TRUE(counts);
  EXPECT_EQ(counts->removed, 3);
  EXPECT_EQ(counts->tooRecent, 1);
  EXPECT_FALSE(counts->refused);
  for (const auto& path : {kept, keptThumb, unsaved, inFlight}) EXPECT_TRUE(fs_.exists(path));
  for (const auto& path : {lost, lostThumb, temp}) EXPECT_FALSE(fs_.exists(path)) << path;
  EXPECT_TRUE(log_.contains("[Klipora][Cleanup] removed orphan " + lost));
  EXPECT_EQ(sweepOrphanFiles(context(), storage_, clock_)->removed, 0);  // nothing left
}

TEST_F(OrphanFilesTest, AFolderThatIsNotThisLibrarysIsLeftAlone) {
  for (int i = 0; i < 60; ++i) addFile(storage_.originalsFolder(), std::to_string(i) + ".png", 1e5);
  auto counts = sweepOrphanFiles(context(), storage_, clock_);
  ASSERT_TRUE(counts);
  EXPECT_TRUE(counts->refused);
  EXPECT_EQ(counts->removed, 0);
  EXPECT_EQ(fs_.filesUnder(storage_.originalsFolder()).size(), 60u);
  EXPECT_TRUE(log_.contains("may belong to another library"));
}

// A fresh library whose first import was killed: every file is unnamed, as in
// another library's folder, but the import noted its names first.
TEST_F(OrphanFilesTest, CopiesOfAnUnfinishedImportGoEvenWhereTheyAreMostOfTheFolder) {
  CopiesInFlight copies(context().database(), clock_);
  std::vector<std::string> ours;
  for (int i = 0; i < 60; ++i) {
    std::string copy = copies.take()->uuidString(), thumb = copies.take()->uuidString();
    ours.push_back(addFile(storage_.originalsFolder(), copy + ".png", 3600));
    ours.push_back(addFile(storage_.thumbnailsFolder(), thumb + ".jpg", 3600));
  }
  // One import that finished: saving its record clears its names.
  UUID copyName = *copies.take(), itemID = *copies.take();
  auto item = std::make_shared<ScreenshotItem>();
  item->id = itemID;
  item->importedFilename = copyName.uuidString() + ".png";
  item->libraryPath = addFile(storage_.originalsFolder(), item->importedFilename, 3600);
  context().insert(item);
  ASSERT_TRUE(context().save().ok());
  UUID unused = *copies.take();  // noted, never written
  for (int i = 0; i < 130; ++i) {
    addFile(storage_.originalsFolder(), std::to_string(i) + ".png", 1e5);
  }

  auto counts = sweepOrphanFiles(context(), storage_, clock_);
  ASSERT_TRUE(counts);
  EXPECT_TRUE(counts->refused);  // the 130 strangers stay
  EXPECT_EQ(counts->removed, 120);
  for (const auto& path : ours) EXPECT_FALSE(fs_.exists(path)) << path;
  EXPECT_TRUE(fs_.exists(item->libraryPath));
  auto noted = [&] {
    std::set<std::string> names;
    auto rows = notedCopies(context().database());
    EXPECT_TRUE(rows) << rows.error().message();
    for (const auto& n : rows.value_or(std::vector<NotedCopy>{})) names.insert(n.name);
    return names;
  };
  EXPECT_EQ(noted().count(itemID.uuidString()) + noted().count(copyName.uuidString()), 0u);
  // A name with no file yet may be about to be used; once old, it is forgotten.
  EXPECT_EQ(noted().size(), static_cast<size_t>(CopiesInFlight::kBatch * 8 - 122));
  EXPECT_TRUE(noted().count(unused.uuidString()));
  clock_.advance(kOrphanMinimumAge);
  ASSERT_TRUE(sweepOrphanFiles(context(), storage_, clock_));
  EXPECT_TRUE(noted().empty());
}

}  // namespace
}  // namespace klipora::library
