#include "processing/ocr_preparation.h"

#include <gtest/gtest.h>

#include <random>

#include "processing/ocr_ink.h"
#include "processing/ocr_test_support.h"
#include "processing/ocr_tiling.h"

namespace klipora::processing {
namespace {

using testing::Fill;
using testing::Page;
using testing::Word;

TEST(OcrInkTest, WindowFiltersMatchABruteForceExtreme) {
  std::mt19937 rng(7);
  for (auto [w, h] : {std::pair{1, 1}, {5, 3}, {37, 29}}) {
    PixelImage image = Page(w, h);
    for (uint8_t& p : image.pixels) p = static_cast<uint8_t>(rng());
    for (int window : {1, 3, 5, 7, 9, 15}) {
      PixelImage max = maxFilter(image, window), min = minFilter(image, window);
      const int r = window / 2;
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          int hi = 0, lo = 255;
          for (int yy = std::max(0, y - r); yy <= std::min(h - 1, y + r); ++yy) {
            for (int xx = std::max(0, x - r); xx <= std::min(w - 1, x + r); ++xx) {
              hi = std::max<int>(hi, image.row(yy)[xx]);
              lo = std::min<int>(lo, image.row(yy)[xx]);
            }
          }
          ASSERT_EQ(max.row(y)[x], hi) << w << "x" << h << " window " << window;
          ASSERT_EQ(min.row(y)[x], lo) << w << "x" << h << " window " << window;
        }
      }
    }
  }
}

TEST(OcrInkTest, TextOfEitherPolarityBecomesDarkInkAndPanelEdgesStayWhite) {
  PixelImage screen = Page(300, 160, 230);  // a light window
  Fill(screen, {150, 40, 290, 120}, 40);    // with a dark panel in it
  OcrBox light = Word(screen, 170, 70, 3, 12, 245);
  OcrBox dark = Word(screen, 20, 70, 3, 12, 20);
  PixelImage ink = normalizeInk(screen, strokeWindowFor(12));
  EXPECT_LT(ink.row(light.top)[light.left], 60);  // the strokes themselves
  EXPECT_LT(ink.row(dark.top)[dark.left], 60);
  // Everything that is not a stroke is paper, the panel's edges included.
  for (int y = 0; y < ink.height; ++y) {
    for (int x = 0; x < ink.width; ++x) {
      bool inWord = (y >= light.top && y < light.bottom && x >= light.left && x < light.right) ||
                    (y >= dark.top && y < dark.bottom && x >= dark.left && x < dark.right);
      if (!inWord) {
        ASSERT_EQ(ink.row(y)[x], 255) << x << "," << y;
      }
    }
  }
  EXPECT_EQ(estimateGlyphHeight(screen), 12);
  EXPECT_EQ(estimateGlyphHeight(Page(50, 50)), 0);
}

TEST(OcrPreparationTest, ResamplingKeepsFlatAreasFlatAndAveragesWhenReducing) {
  PixelImage grey = Page(41, 23, 77);
  for (double factor : {0.37, 0.5, 1.5, 2.3}) {
    PixelImage out = resizeGrey(grey, factor);
    EXPECT_EQ(out.width, static_cast<int>(std::lround(41 * factor)));
    EXPECT_EQ(out.height, static_cast<int>(std::lround(23 * factor)));
    for (uint8_t p : out.pixels) ASSERT_EQ(p, 77) << factor;
  }
  PixelImage checker = Page(4, 4);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) checker.row(y)[x] = (x + y) % 2 ? 255 : 0;
  }
  for (uint8_t p : resizeGrey(checker, 0.5).pixels) EXPECT_NEAR(p, 128, 1);
  PixelImage ramp = Page(2, 1);
  ramp.pixels = {0, 200};
  EXPECT_EQ(resizeGrey(ramp, 2).pixels, (std::vector<uint8_t>{0, 50, 150, 200, 0, 50, 150, 200}));
}

TEST(OcrPreparationTest, TextIsBroughtToAReadableSizeAndDarkOnLight) {
  OCRPreparationOptions options;
  PixelImage small = Page(200, 60, 20);  // a dark theme with 6-pixel text
  Word(small, 10, 10, 6, 6, 220);
  PreparedImage up = prepareForRecognition(small, options);
  EXPECT_DOUBLE_EQ(up.scale, 2);
  EXPECT_EQ(up.glyphHeight, 12);
  EXPECT_EQ(up.image.width, 400);
  EXPECT_GT(up.image.row(0)[0], 250);  // the dark background came out white

  PixelImage large = Page(400, 200);
  Word(large, 10, 10, 6, 30);
  PreparedImage down = prepareForRecognition(large, options);
  EXPECT_DOUBLE_EQ(down.scale, 14.0 / 30);
  EXPECT_EQ(down.glyphHeight, 14);

  options.normalizeInk = false;  // plain inversion of dark images instead
  options.upscaleSmallText = false;
  PreparedImage inverted = prepareForRecognition(small, options);
  EXPECT_EQ(inverted.image.row(0)[0], 235);
  options.greyscale = false;
  EXPECT_EQ(prepareForRecognition(small, options).image.pixels, small.pixels);
}

TEST(OcrTilingTest, HugeImagesAreCutAtQuietColumnsIntoTilesThatFit) {
  EXPECT_EQ(planTiles(Page(100, 50), 4096), (std::vector<OcrBox>{{0, 0, 100, 50}}));
  PixelImage strip = Page(10000, 300);
  for (int x = 0; x + 12 < 10000; x += 20) Fill(strip, {x, 100, x + 12, 120});
  Fill(strip, {3300, 0, 3400, 300}, 255);  // a quiet gap near the first third
  auto tiles = planTiles(strip, 4096);
  ASSERT_EQ(tiles.size(), 3u);
  EXPECT_EQ(tiles[0].left, 0);
  EXPECT_GE(tiles[1].left, 3300);
  EXPECT_LT(tiles[1].left, 3400);
  for (size_t i = 1; i < tiles.size(); ++i) EXPECT_EQ(tiles[i].left, tiles[i - 1].right);
  EXPECT_EQ(tiles.back().right, 10000);
  for (const OcrBox& t : tiles) {
    EXPECT_LE(t.right - t.left, 4096);
    EXPECT_EQ(t.bottom, 300);
  }
}

}  // namespace
}  // namespace klipora::processing
