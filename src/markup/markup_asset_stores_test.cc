#include "markup/markup_asset_stores.h"

#include <gtest/gtest.h>

#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::markup {
namespace {

constexpr char kRoot[] = "/support";

class MarkupAssetStoresTest : public ::testing::Test {
 protected:
  MarkupSignatureStore Signatures() {
    return MarkupSignatureStore(fs_, io_, main_, kRoot, clock_);
  }
  MarkupWatermarkStore Watermarks() {
    return MarkupWatermarkStore(fs_, codec_, io_, main_, kRoot, clock_);
  }
  // Runs the I/O queue and what it hands back to the main thread.
  void Settle() {
    while (io_.runAll() + main_.runAll() > 0) {
    }
  }

  testing::MemoryFileSystem fs_;
  testing::FakeImageCodec codec_;
  testing::ManualExecutor io_;
  testing::ManualExecutor main_;
  testing::ManualClock clock_;
  testing::ScopedLogCapture log_;
};

TEST_F(MarkupAssetStoresTest, WatermarksAreSavedWithTheirImagesAndDeletedWithThem) {
  auto store = Watermarks();
  Settle();
  EXPECT_TRUE(store.loaded());
  EXPECT_TRUE(store.stamps().empty());  // no index yet: an empty list, nothing logged
  EXPECT_FALSE(log_.contains("load failed"));
  auto stamp = store.add(PixelImage::filled(40, 10, 4, 0), "  \n ");
  ASSERT_TRUE(stamp);
  EXPECT_EQ(stamp->name, "Watermark");
  EXPECT_DOUBLE_EQ(stamp->aspectRatio, 4);
  EXPECT_EQ(stamp->createdAt, clock_.now());
  EXPECT_EQ(store.imagePath(stamp->id), "/support/Watermarks/" + stamp->id.uuidString() + ".png");
  EXPECT_TRUE(fs_.exists(store.imagePath(stamp->id)));  // written at once: add answers for it
  EXPECT_FALSE(fs_.exists("/support/Watermarks.json"));  // the index waits for the I/O queue
  Settle();
  ASSERT_TRUE(store.rename(stamp->id, " Logo "));
  Settle();

  auto reopened = Watermarks();
  Settle();
  ASSERT_EQ(reopened.stamps().size(), 1u);
  EXPECT_EQ(reopened.stamps()[0], (MarkupWatermarkStamp{stamp->id, "Logo", 4, clock_.now()}));
  auto image = reopened.image(stamp->id);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width, 40);
  EXPECT_EQ(reopened.image(stamp->id), image);  // cached
  EXPECT_EQ(codec_.pixelDecodes, 1);

  ASSERT_TRUE(reopened.remove(stamp->id));
  Settle();
  EXPECT_FALSE(fs_.exists(reopened.imagePath(stamp->id)));
  EXPECT_EQ(reopened.image(stamp->id), nullptr);
  auto emptied = Watermarks();
  Settle();
  EXPECT_TRUE(emptied.stamps().empty());
  EXPECT_FALSE(reopened.remove(stamp->id));
  EXPECT_FALSE(reopened.rename(stamp->id, "x"));
}

TEST_F(MarkupAssetStoresTest, AWatermarkWhoseImageCannotBeWrittenIsNotAdded) {
  ASSERT_TRUE(fs_.createDirectories(kRoot).ok());
  fs_.setReadOnlyDirectory(kRoot, true);
  auto store = Watermarks();
  EXPECT_FALSE(store.add(PixelImage::filled(4, 4, 4, 0), "Logo"));
  EXPECT_TRUE(store.stamps().empty());
  EXPECT_TRUE(log_.contains("MarkupWatermarkStore add: PNG write failed: "));
  EXPECT_FALSE(store.add(PixelImage{}, "Empty"));
}

TEST_F(MarkupAssetStoresTest, SignaturesKeepTheirStrokesAndAspect) {
  auto store = Signatures();
  Settle();
  EXPECT_FALSE(store.add({{{}, 2}}, "empty"));  // no points, no signature
  auto signature = store.add({{{{0, 0}, {30, 10}}, 2}, {{{10, 5}}, 3}}, "Me");
  ASSERT_TRUE(signature);
  EXPECT_DOUBLE_EQ(signature->aspectRatio, 3);
  Settle();
  auto reopened = Signatures();
  Settle();
  ASSERT_EQ(reopened.signatures().size(), 1u);
  EXPECT_EQ(reopened.signatures()[0], *signature);
  EXPECT_EQ(reopened.signature(signature->id)->strokes[1].width, 3);
  ASSERT_TRUE(reopened.rename(signature->id, "Initials"));
  ASSERT_TRUE(reopened.remove(signature->id));
  Settle();
  auto emptied = Signatures();
  Settle();
  EXPECT_TRUE(emptied.signatures().empty());
  EXPECT_FALSE(reopened.signature(signature->id));
}

TEST_F(MarkupAssetStoresTest, UnreadableFilesAndFailedSavesAreLoggedNotRaised) {
  fs_.addFile("/support/signatures.json", "[{\"id\": 1}]");
  fs_.addFile("/support/Watermarks.json", "not json");
  {
    auto signatures = Signatures();
    auto watermarks = Watermarks();
    Settle();
    EXPECT_TRUE(signatures.loaded() && signatures.signatures().empty());
    EXPECT_TRUE(watermarks.loaded() && watermarks.stamps().empty());
  }
  EXPECT_TRUE(log_.contains("MarkupSignatureStore load failed: "));
  EXPECT_TRUE(log_.contains("MarkupWatermarkStore load failed: "));
  fs_.setReadOnlyDirectory(kRoot, true);
  auto store = Signatures();
  Settle();
  EXPECT_TRUE(store.add({{{{0, 0}, {1, 1}}, 2}}, "Me"));  // the list changes anyway
  Settle();
  EXPECT_TRUE(log_.contains("MarkupSignatureStore save failed: "));
  EXPECT_EQ(store.signatures().size(), 1u);
}

TEST_F(MarkupAssetStoresTest, ListsArriveFromTheIOQueueAndKeepChangesMadeMeanwhile) {
  auto first = Signatures();
  Settle();
  auto saved = first.add({{{{0, 0}, {20, 10}}, 2}}, "Saved");
  Settle();

  // Creating a store reads nothing on the caller's thread.
  auto store = Signatures();
  EXPECT_FALSE(store.loaded());
  EXPECT_TRUE(store.signatures().empty());
  EXPECT_EQ(io_.pending(), 1u);
  auto early = store.add({{{{0, 0}, {10, 10}}, 2}}, "Early");
  ASSERT_TRUE(early);
  EXPECT_EQ(io_.pending(), 1u);  // no write yet: it would replace the file with "Early" alone
  io_.runAll();
  EXPECT_FALSE(store.loaded());  // read, not yet handed over
  main_.runAll();
  ASSERT_TRUE(store.loaded());
  ASSERT_EQ(store.signatures().size(), 2u);
  EXPECT_EQ(store.signatures()[0].id, saved->id);
  EXPECT_EQ(store.signatures()[1].id, early->id);
  Settle();
  auto reopened = Signatures();
  Settle();
  EXPECT_EQ(reopened.signatures(), store.signatures());

  // A store gone before its list arrives drops it.
  { auto gone = Watermarks(); }
  Settle();
}

}  // namespace
}  // namespace klipora::markup
