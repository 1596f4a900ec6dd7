#include "ingestion/import_pipeline.h"

#include <gtest/gtest.h>

#include <set>

#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "platform/sha256.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::ingestion {
namespace {

using library::ImportSourceType;
using library::ScreenshotItem;
using testing::FakeImageCodec;
using Op = testing::FaultInjectingFileSystem::Op;

constexpr char kRoot[] = "/home/u/.local/share/Klipora/Library";
constexpr char kShots[] = "/home/u/Pictures/Screenshots";

// Files live in memory, images are the fake codec's, the store is real SQLite,
// and the test drives the main and background executors by hand.
class ImportPipelineTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(storage_.createLibraryStructure().ok()); }

  std::string addShot(const std::string& name, const std::string& content) {
    std::string path = joinPath(kShots, name);
    memory_.addFile(path, content, Date::fromSecondsSince1970(1'650'000'000));
    return path;
  }

  // Starts an import; the outcome lands in the returned slot once drained.
  std::shared_ptr<std::optional<ImportResult>> start(
      const std::string& path, ImportSourceType source = ImportSourceType::manualImport) {
    auto slot = std::make_shared<std::optional<ImportResult>>();
    pipeline_.importScreenshot(path, source, "org.gnome.Terminal", "Terminal",
                               [slot](ImportResult r) { *slot = std::move(r); });
    return slot;
  }
  void drain() {
    while (main_.runAll() + background_.runAll() > 0) {
    }
  }
  ImportResult importNow(const std::string& path,
                         ImportSourceType source = ImportSourceType::manualImport) {
    auto slot = start(path, source);
    drain();
    return **slot;
  }
  int64_t savedItems() {
    EXPECT_TRUE(saver_.flush().ok());
    return *context().fetchCount<ScreenshotItem>();
  }
  library::ModelContext& context() { return container_->mainContext(); }
  std::vector<std::string> originals() { return memory_.filesUnder(storage_.originalsFolder()); }

  testing::MemoryFileSystem memory_;
  testing::FaultInjectingFileSystem fs_{memory_};
  FakeImageCodec codec_;
  testing::ManualClock clock_;
  testing::ManualExecutor main_, background_;
  testing::TempDir dir_;
  std::shared_ptr<library::ModelContainer> container_ =
      *library::KliporaModelContainer::make(memory_, clock_, dir_.file("Klipora.store"));
  library::StorageService storage_{fs_, codec_, kRoot};
  library::ScreenshotItemStore itemStore_{&container_->mainContext()};
  ImportChecksumClaims claims_{itemStore_};
  processing::ProcessingSaveCoalescer saver_{container_->mainContext(), clock_};
  ImportPipeline pipeline_{storage_,   container_->mainContext(), saver_, claims_, clock_, main_,
                           background_};
};

TEST_F(ImportPipelineTest, ImportedItemCarriesTheFileFactsAndWaitsForTheBatchedSave) {
  std::string content =
      FakeImageCodec::makeImage(1080, 1920, "orientation=6 exif=2024:02:29 23:59:59");
  std::string path = addShot("shot.PNG", content);
  auto result = importNow(path, ImportSourceType::automaticWatch);
  ASSERT_TRUE(result) << result.error().errorDescription();

  auto pending = context().pendingInserts<ScreenshotItem>();
  ASSERT_EQ(pending.size(), 1u);  // inserted, not yet saved on its own
  const ScreenshotItem& item = *pending[0];
  EXPECT_EQ(item.id, *result);
  EXPECT_EQ(item.originalFilename, "shot.PNG");
  EXPECT_EQ(item.sourcePath, path);
  EXPECT_EQ(item.importedFilename.size(), 36u + 4u);
  EXPECT_EQ(item.importedFilename.substr(36), ".PNG");
  EXPECT_EQ(UUID::Parse(item.importedFilename.substr(0, 36))->uuidString(),
            item.importedFilename.substr(0, 36));  // upper-case canonical
  EXPECT_EQ(item.libraryPath, joinPath(storage_.originalsFolder(), item.importedFilename));
  EXPECT_EQ(*memory_.readFile(item.libraryPath), content);
  EXPECT_EQ(item.checksum, sha256Hex(content));
  EXPECT_EQ(item.fileSize, static_cast<int64_t>(content.size()));
  EXPECT_EQ(item.width, 1920);  // orientation 6: shown turned
  EXPECT_EQ(item.height, 1080);
  EXPECT_EQ(item.capturedAt, parseExifDate("2024:02:29 23:59:59"));
  EXPECT_EQ(item.importedAt, clock_.now());
  EXPECT_EQ(item.processingState(), library::ProcessingState::thumbnailGenerated);
  EXPECT_EQ(item.importSource, ImportSourceType::automaticWatch);
  EXPECT_EQ(item.sourceAppBundleID, "org.gnome.Terminal");
  EXPECT_EQ(item.thumbnailPath, storage_.thumbnailPath(item.id));
  EXPECT_EQ(*memory_.readFile(*item.thumbnailPath), "FAKEJPEG 300 169 q80");
  EXPECT_TRUE(memory_.exists(path));  // the original stays unless asked otherwise
  EXPECT_TRUE(claims_.inFlight().empty());
  EXPECT_EQ(saver_.dirtyCount(), 1);
  // The copy's and the thumbnail's names were noted before they were
  // written, and saving the record clears them.
  auto noted = [&] {
    std::set<std::string> names;
    auto rows = library::notedCopies(context().database());
    EXPECT_TRUE(rows) << rows.error().message();
    for (const auto& n : rows.value_or(std::vector<library::NotedCopy>{})) names.insert(n.name);
    return names;
  };
  EXPECT_TRUE(noted().count(item.id.uuidString()));
  EXPECT_TRUE(noted().count(item.importedFilename.substr(0, 36)));
  clock_.advance(0.6);
  EXPECT_EQ(*context().fetchCount<ScreenshotItem>(), 1);
  EXPECT_FALSE(noted().count(item.id.uuidString()));
  EXPECT_FALSE(noted().count(item.importedFilename.substr(0, 36)));
}

TEST_F(ImportPipelineTest, RefusalsTouchNothing) {
  addShot("notes.pdf", "%PDF-1.4");
  addShot("README", FakeImageCodec::makeImage(10, 10));
  auto pdf = importNow(joinPath(kShots, "notes.pdf"));
  ASSERT_FALSE(pdf);
  EXPECT_EQ(pdf.error().errorDescription(), "Unsupported file type: pdf");
  auto bare = importNow(joinPath(kShots, "README"));
  ASSERT_FALSE(bare);
  EXPECT_EQ(bare.error().errorDescription(), "Unsupported file type: ");
  EXPECT_NE(bare.error().cause.find("no extension"), std::string::npos);

  const std::pair<const char*, const char*> unreadable[] = {
      {"empty.png", "the file is empty"},
      {"text.png", "it is not an image in any format Klipora reads"},
      {"gone.png", "no such file; it may have been moved or deleted"},
      {"folder.png", "it is a folder; klipora import --folder imports the screenshots in it"},
      {"folder", "it is a folder; klipora import --folder imports the screenshots in it"}};
  addShot("empty.png", "");
  addShot("text.png", "just some text");
  ASSERT_TRUE(memory_.createDirectories(joinPath(kShots, "folder.png")).ok());
  ASSERT_TRUE(memory_.createDirectories(joinPath(kShots, "folder")).ok());
  for (const auto& [name, cause] : unreadable) {
    auto r = importNow(joinPath(kShots, name));
    ASSERT_FALSE(r);
    EXPECT_EQ(r.error().errorDescription(), "Could not read the file.");
    EXPECT_EQ(r.error().cause, cause) << name;
  }
  EXPECT_TRUE(originals().empty());  // copies made while reading are gone again
  EXPECT_EQ(savedItems(), 0);
}

TEST_F(ImportPipelineTest, SameBytesTwiceGiveOneItemWhetherRacingOrLater) {
  std::string content = FakeImageCodec::makeImage(800, 600);
  auto first = start(addShot("a.png", content));
  auto racing = start(addShot("b.png", content));  // same bytes, other name, same moment
  drain();
  EXPECT_NE(first->value().has_value(), racing->value().has_value());
  auto& refused = first->value() ? *racing : *first;
  EXPECT_EQ(refused->error().errorDescription(), "This screenshot has already been imported.");

  clock_.advance(1);  // saved now
  auto later = importNow(joinPath(kShots, "a.png"));
  ASSERT_FALSE(later);
  EXPECT_EQ(later.error().kind, ImportError::Case::duplicateScreenshot);
  EXPECT_EQ(savedItems(), 1);
  EXPECT_EQ(originals().size(), 1u);
  EXPECT_TRUE(claims_.inFlight().empty());
}

TEST_F(ImportPipelineTest, ImportsGoAFewAtATimeInTwoLanesAndWaitingOnesCanBeDropped) {
  // A drop of screenshots into a watched folder and a bulk import at once:
  // each lane reads a few files at a time, and neither waits for the other.
  std::vector<std::shared_ptr<std::optional<ImportResult>>> fresh, bulk;
  for (int i = 0; i < 10; ++i) {
    fresh.push_back(
        start(addShot("f" + std::to_string(i) + ".png", FakeImageCodec::makeImage(100 + i, 10)),
              ImportSourceType::automaticWatch));
    bulk.push_back(
        start(addShot("b" + std::to_string(i) + ".png", FakeImageCodec::makeImage(200 + i, 10)),
              ImportSourceType::folderImport));
  }
  EXPECT_EQ(background_.pending(), 8u);
  drain();
  for (const auto& slot : fresh) EXPECT_TRUE(slot->value());
  for (const auto& slot : bulk) EXPECT_TRUE(slot->value());
  // A screenshot alone in its lane has the fresh worker to itself; the rest
  // of a drop goes to the background threads.
  testing::ManualExecutor freshWorker;
  pipeline_.setFreshWorker(&freshWorker);
  fresh.clear();
  for (int i = 0; i < 3; ++i) {
    fresh.push_back(
        start(addShot("g" + std::to_string(i) + ".png", FakeImageCodec::makeImage(400 + i, 10)),
              ImportSourceType::automaticWatch));
  }
  EXPECT_EQ(freshWorker.pending(), 1u);
  EXPECT_EQ(background_.pending(), 2u);
  while (freshWorker.runAll() + main_.runAll() + background_.runAll() > 0) {
  }
  for (const auto& slot : fresh) EXPECT_TRUE(slot->value());
  pipeline_.setFreshWorker(nullptr);

  // Stopping: what has not begun is answered and leaves nothing behind.
  std::vector<std::shared_ptr<std::optional<ImportResult>>> late;
  for (int i = 0; i < 6; ++i) {
    late.push_back(
        start(addShot("late" + std::to_string(i) + ".png", FakeImageCodec::makeImage(300 + i, 10)),
              ImportSourceType::automaticWatch));
  }
  pipeline_.dropWaiting(ImportError::fileSystem(Status::Unavailable("stopping")));
  drain();
  int imported = 0;
  for (const auto& slot : late) {
    ASSERT_TRUE(slot->has_value());
    if (slot->value()) {
      ++imported;
    } else {
      EXPECT_EQ(slot->value().error().kind, ImportError::Case::fileSystem);
    }
  }
  EXPECT_EQ(imported, 4);
  EXPECT_EQ(originals().size(), 27u);
  EXPECT_EQ(savedItems(), 27);
}

TEST_F(ImportPipelineTest, FileThatVanishesAfterTheCallLeavesNoClaim) {
  std::string path = addShot("a.png", FakeImageCodec::makeImage(10, 10));
  auto slot = start(path);
  ASSERT_TRUE(memory_.removeFile(path).ok());  // gone before the background read
  drain();
  ASSERT_FALSE(**slot);
  EXPECT_EQ((*slot)->error().errorDescription(), "Could not read the file.");
  EXPECT_TRUE(claims_.inFlight().empty());

  fs_.failWhen(Op::kRead, "locked.png", Status::PermissionDenied("open: Permission denied"));
  auto denied = importNow(addShot("locked.png", FakeImageCodec::makeImage(10, 10)));
  EXPECT_EQ(denied.error().kind, ImportError::Case::unreadableFile);
  EXPECT_EQ(denied.error().cause, "no permission to read it");
}

TEST_F(ImportPipelineTest, FullDiskDuringTheCopyLeavesNoFileNoRecordAndNoClaim) {
  fs_.failWhen(Op::kWriteNew, "/Originals/", Status::NoSpace("write: No space left on device"));
  std::string content = FakeImageCodec::makeImage(640, 480);
  auto result = importNow(addShot("a.png", content));
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().kind, ImportError::Case::fileSystem);
  EXPECT_NE(result.error().errorDescription().find("No space left"), std::string::npos);
  EXPECT_EQ(result.error().cause, "the disk is full");
  EXPECT_TRUE(originals().empty());
  EXPECT_EQ(savedItems(), 0);
  EXPECT_TRUE(claims_.inFlight().empty());

  fs_.clearFaults();  // the disk has room again: the same bytes import fine
  EXPECT_TRUE(importNow(joinPath(kShots, "a.png")));
}

TEST_F(ImportPipelineTest, ThumbnailFailureStillImportsAndOriginalsGoOnlyForWatchedShots) {
  auto broken = importNow(addShot("broken.png", FakeImageCodec::makeImage(10, 10, "broken")));
  ASSERT_TRUE(broken);
  EXPECT_FALSE(context().pendingInserts<ScreenshotItem>()[0]->thumbnailPath);

  pipeline_.setDeleteOriginalAfterImport(true);
  std::string manual = addShot("manual.png", FakeImageCodec::makeImage(11, 10));
  std::string watched = addShot("watched.png", FakeImageCodec::makeImage(12, 10));
  std::string bulk = addShot("bulk.png", FakeImageCodec::makeImage(13, 10));
  ASSERT_TRUE(importNow(manual, ImportSourceType::manualImport));
  ASSERT_TRUE(importNow(watched, ImportSourceType::automaticWatch));
  ASSERT_TRUE(importNow(bulk, ImportSourceType::folderImport));
  EXPECT_TRUE(memory_.exists(manual));
  EXPECT_FALSE(memory_.exists(watched));
  EXPECT_TRUE(memory_.exists(bulk));
  EXPECT_EQ(savedItems(), 4);

  // An original that cannot be removed is a file-system error once the item exists.
  std::string stuck = addShot("stuck.png", FakeImageCodec::makeImage(14, 10));
  fs_.failWhen(Op::kRemove, "stuck.png", Status::PermissionDenied("remove: Permission denied"));
  auto late = importNow(stuck, ImportSourceType::automaticWatch);
  ASSERT_FALSE(late);
  EXPECT_EQ(late.error().kind, ImportError::Case::fileSystem);
  ASSERT_TRUE(late.error().importedItemID);
  EXPECT_EQ(savedItems(), 5);
  EXPECT_TRUE(*context().fetchByKey<ScreenshotItem>(late.error().importedItemID->uuidString()));
  EXPECT_TRUE(memory_.exists(stuck));
}

TEST_F(ImportPipelineTest, LargeFilesAreCopiedInChunksAndExaminedFromTheirCopy) {
  codec_.files = &memory_;
  pipeline_.setInMemoryLimit(64);
  std::string content = FakeImageCodec::makeImage(4000, 3000, "exif=2024:01:02 03:04:05");
  content += std::string(3 * FileSystem::kCopyChunkSize + 5, 'x');  // pixels, several chunks
  auto result = importNow(addShot("big.png", content));
  ASSERT_TRUE(result) << result.error().errorDescription();
  const ScreenshotItem& item = *context().pendingInserts<ScreenshotItem>()[0];
  EXPECT_EQ(item.checksum, sha256Hex(content));
  EXPECT_EQ(item.fileSize, static_cast<int64_t>(content.size()));
  EXPECT_EQ(item.width, 4000);
  EXPECT_EQ(item.capturedAt, parseExifDate("2024:01:02 03:04:05"));
  EXPECT_EQ(*memory_.readFile(item.libraryPath), content);
  EXPECT_EQ(*memory_.readFile(*item.thumbnailPath), "FAKEJPEG 300 225 q80");
  EXPECT_GE(codec_.fileReads.load(), 2);  // header and thumbnail, from the library copy

  // The same bytes again: the copy made while reading is removed.
  auto again = importNow(addShot("big-again.png", content));
  ASSERT_FALSE(again);
  EXPECT_EQ(again.error().kind, ImportError::Case::duplicateScreenshot);
  EXPECT_EQ(originals().size(), 1u);
}

}  // namespace
}  // namespace klipora::ingestion
