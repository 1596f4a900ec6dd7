// Every snapshot of the gallery (tests/data/markup/gallery, one per layer kind
// and whole-image setting) decodes and renders with the real fonts and
// libvips, to the size its whole-image settings give.
#include <gtest/gtest.h>

#include <filesystem>

#include "markup/markup_snapshot_json.h"
#include "markup/render/markup_renderer.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/vips_image_codec.h"

namespace klipora::markup {
namespace {

TEST(MarkupGalleryTest, EverySnapshotRenders) {
  PosixFileSystem files;
  VipsImageCodec codec;
  MarkupRenderer renderer(codec);
  int rendered = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::string(KLIPORA_TEST_DATA) + "/markup/gallery")) {
    if (entry.path().extension() != ".json") continue;
    auto snapshot = readSnapshotFile(files, entry.path().string());
    ASSERT_TRUE(snapshot) << entry.path() << ": " << snapshot.error().message();
    int width = static_cast<int>(snapshot->sourceImageWidth);
    int height = static_cast<int>(snapshot->sourceImageHeight);
    auto source = MarkupImage::fromPixels(PixelImage::filled(width, height, 4, 255));
    auto out = renderer.render(*snapshot, *source);
    ASSERT_TRUE(out) << entry.path() << ": " << out.error().message();
    const std::string name = entry.path().stem();
    if (name == "crop_turn") {
      EXPECT_EQ(out->width(), 600);  // the crop, turned a quarter
      EXPECT_EQ(out->height(), 900);
    } else if (name == "chrome_dark") {
      EXPECT_EQ(out->width(), width + 220);
      EXPECT_EQ(out->height(), height + 44);
    } else if (name.rfind("extension_", 0) == 0) {
      EXPECT_EQ(out->width(), width + 240);
    } else if (!snapshot->background && !snapshot->chrome) {
      EXPECT_EQ(out->width(), width) << name;
    }
    ++rendered;
  }
  EXPECT_GE(rendered, 20);
}

}  // namespace
}  // namespace klipora::markup
