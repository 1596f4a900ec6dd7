#include "app/markup_commit_service.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_sidecar_store.h"
#include "platform/sha256.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::app {
namespace {

using library::ScreenshotItem;
using markup::MarkupDocumentSnapshot;

constexpr char kRoot[] = "/lib";

class MarkupCommitServiceTest : public ::testing::Test {
 protected:
  MarkupCommitServiceTest() {
    container_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
    EXPECT_TRUE(storage_.createLibraryStructure().ok());
  }
  library::ModelContext& context() { return container_->mainContext(); }
  Result<EditsFolderResult> Commit(const UUID& id, const MarkupDocumentSnapshot& snapshot,
                                   MarkupCommit::Destination destination) {
    return MarkupCommitService(context(), storage_, clock_).commit(id, snapshot, destination);
  }

  std::shared_ptr<ScreenshotItem> AddItem(const std::string& name, const std::string& bytes) {
    auto item = std::make_shared<ScreenshotItem>();
    item->originalFilename = name;
    item->libraryPath = std::string(kRoot) + "/Originals/" + item->id.uuidString() + "." +
                        pathExtension(name);
    item->importedFilename = lastPathComponent(item->libraryPath);
    item->checksum = sha256Hex(bytes);
    item->setProcessingState(library::ProcessingState::complete);
    fs_.addFile(item->libraryPath, bytes);
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item;
  }
  MarkupDocumentSnapshot Snapshot(const UUID& itemID) {
    MarkupDocumentSnapshot s;
    s.sourceItemID = itemID;
    s.sourceImageWidth = 200;
    s.sourceImageHeight = 100;
    s.createdAt = clock_.now();
    s.effects.push_back({.kind = markup::MarkupEffectRegion::Kind::blackBar,
                         .frame = markup::Rect::make(0, 0, 200, 100), .intensity = 1});
    return s;
  }
  std::shared_ptr<ScreenshotItem> Fetch(const UUID& id) {
    return *context().fetchByKey<ScreenshotItem>(id.uuidString());
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  testing::FakeImageCodec codec_;
  testing::ScopedLogCapture log_;
  std::shared_ptr<library::ModelContainer> container_;
  library::StorageService storage_{fs_, codec_, kRoot};
};

TEST_F(MarkupCommitServiceTest, OverwritingStashesTheOriginalOnceAndReopensTheEdit) {
  const std::string original = testing::FakeImageCodec::makeImage(200, 100, "fill=200");
  auto item = AddItem("shot.jpg", original);
  const std::string jpegPath = item->libraryPath;
  auto snapshot = Snapshot(item->id);
  auto result = Commit(item->id, snapshot, MarkupCommit::Destination::overwriteOriginal);
  ASSERT_TRUE(result) << result.error().message();
  EXPECT_EQ(result->newItemID, item->id);
  // The rendered PNG replaces the file under a .png name; the JPEG is stashed.
  EXPECT_EQ(result->url, jpegPath.substr(0, jpegPath.size() - 3) + "png");
  EXPECT_FALSE(fs_.exists(jpegPath));
  const std::string rendered = *fs_.readFile(result->url);
  EXPECT_EQ(rendered, testing::FakeImageCodec::makeImage(200, 100, "fill=0"));  // the black bar
  markup::MarkupNonDestructiveStore originals(fs_);
  EXPECT_EQ(originals.existingRawURL(kRoot, item->id),
            std::string(kRoot) + "/Edits/.originals/" + item->id.uuidString() + ".jpg");
  auto updated = Fetch(item->id);
  EXPECT_EQ(updated->libraryPath, result->url);
  EXPECT_EQ(updated->checksum, sha256Hex(rendered));
  EXPECT_EQ(updated->fileSize, static_cast<int64_t>(rendered.size()));
  EXPECT_EQ(updated->width, 200);
  EXPECT_EQ(updated->processingState(), library::ProcessingState::thumbnailGenerated);
  EXPECT_TRUE(updated->thumbnailPath);
  auto reload = originals.validatedReload(kRoot, item->id, updated->libraryPath);
  ASSERT_TRUE(reload);
  EXPECT_EQ(reload->snapshot.effects, snapshot.effects);

  // A second overwrite is drawn over the stashed original, which stays the first one.
  snapshot.effects.clear();
  ASSERT_TRUE(Commit(item->id, snapshot, MarkupCommit::Destination::overwriteOriginal));
  EXPECT_EQ(*fs_.readFile(result->url), testing::FakeImageCodec::makeImage(200, 100, "fill=200"));
  EXPECT_EQ(*fs_.readFile(*originals.existingRawURL(kRoot, item->id)), original);
}

TEST_F(MarkupCommitServiceTest, ANewSiblingIsANewItemWithItsSidecar) {
  auto item = AddItem("shot.png", testing::FakeImageCodec::makeImage(200, 100, "fill=9"));
  auto result =
      Commit(item->id, Snapshot(item->id), MarkupCommit::Destination::newSibling);
  ASSERT_TRUE(result) << result.error().message();
  EXPECT_NE(result->newItemID, item->id);
  auto sibling = Fetch(result->newItemID);
  ASSERT_TRUE(sibling);
  EXPECT_EQ(sibling->editedFromID, item->id);
  EXPECT_EQ(sibling->originalFilename, "shot (edited).png");
  EXPECT_EQ(*fs_.readFile(sibling->libraryPath), testing::FakeImageCodec::makeImage(200, 100, "fill=0"));
  EXPECT_EQ(markup::MarkupSidecarStore(fs_).read(kRoot, result->newItemID)->effects.size(), 1u);
  // The source item is untouched.
  EXPECT_EQ(*fs_.readFile(item->libraryPath), testing::FakeImageCodec::makeImage(200, 100, "fill=9"));
  EXPECT_EQ(Fetch(item->id)->processingState(), library::ProcessingState::complete);
  // The same edit again would be a second item with one checksum.
  auto again = Commit(item->id, Snapshot(item->id), MarkupCommit::Destination::newSibling);
  ASSERT_FALSE(again);
  EXPECT_EQ(again.error().code(), Status::Code::kAlreadyExists);
}

TEST_F(MarkupCommitServiceTest, FailuresLeaveTheItemAsItWas) {
  EXPECT_EQ(Commit(UUID::Random(), Snapshot(UUID()),
                            MarkupCommit::Destination::overwriteOriginal)
                .error()
                .code(),
            Status::Code::kNotFound);
  auto broken = AddItem("broken.png", "not an image");
  auto result =
      Commit(broken->id, Snapshot(broken->id), MarkupCommit::Destination::overwriteOriginal);
  ASSERT_FALSE(result);
  EXPECT_NE(result.error().message().find("not a readable image"), std::string::npos);
  EXPECT_EQ(*fs_.readFile(broken->libraryPath), "not an image");
  EXPECT_FALSE(markup::MarkupNonDestructiveStore(fs_).existingRawURL(kRoot, broken->id));
  // A crop outside the image leaves nothing to draw: renderFailed.
  auto item = AddItem("shot.png", testing::FakeImageCodec::makeImage(200, 100));
  auto snapshot = Snapshot(item->id);
  snapshot.crop = markup::MarkupCrop{markup::Rect::make(500, 500, 10, 10)};
  result = Commit(item->id, snapshot, MarkupCommit::Destination::overwriteOriginal);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().message().rfind("renderFailed", 0), 0u);
  EXPECT_EQ(Fetch(item->id)->processingState(), library::ProcessingState::complete);
}

}  // namespace
}  // namespace klipora::app
