// Text recognition with the real recogniser and the real codec, on images
// the tests render themselves.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cmath>

#include "platform/linux/main_loop.h"
#include "platform/linux/tesseract_ocr_engine.h"
#include "platform/linux/testing/text_images.h"
#include "platform/linux/vips_image_codec.h"
#include "processing/ocr_service.h"

namespace klipora::processing {
namespace {

using klipora::testing::makeTextImage;
using klipora::testing::TextImageOptions;
using klipora::testing::TextPatch;

TextImageOptions Lines(const std::string& text, std::string format = ".png") {
  TextImageOptions o;
  o.patches = {TextPatch{text}};
  o.format = std::move(format);
  return o;
}

class OCRIntegrationTest : public ::testing::Test {
 protected:
  OCRResult read(const std::string& image, OCROptions options = {}) {
    EXPECT_FALSE(image.empty()) << "the test image could not be made";
    auto result = service_.recognizeTextWithLayout(image, options);
    EXPECT_TRUE(result) << result.error().describeWithDetail();
    return result ? *result : OCRResult{};
  }

  TesseractOcrEngineFactory engines_;
  VipsImageCodec codec_;
  SystemClock clock_;
  OCRService service_{engines_, codec_, clock_};
};

TEST_F(OCRIntegrationTest, ATerminalReadsLineByLine) {
  TextImageOptions terminal = Lines("hello world\nthe quick brown fox\njumps over 42 lazy dogs");
  terminal.page = 30;
  terminal.patches[0].ink = 230;
  terminal.patches[0].font = "DejaVu Sans Mono 12";
  OCRResult result = read(makeTextImage(terminal));
  EXPECT_EQ(result.text, "hello world\nthe quick brown fox\njumps over 42 lazy dogs");
  ASSERT_EQ(result.lines.size(), 3u);
  // Top line highest: the origin is at the bottom left.
  EXPECT_GT(result.lines[0].boundingBox.y, result.lines[2].boundingBox.y);
  for (const OCRLine& line : result.lines) {
    EXPECT_GT(line.confidence, 0.5f);
    EXPECT_GE(line.boundingBox.x, 0);
    EXPECT_LE(line.boundingBox.maxY(), 1);
  }
}

TEST_F(OCRIntegrationTest, PanelsOfAnyColourAndSmallLabelsAreRead) {
  TextImageOptions dialog;
  dialog.width = 800;
  dialog.patches = {TextPatch{"Could not open the file"},
                    TextPatch{"Try Again", 600, 140, "DejaVu Sans Bold 11", 255, 90},
                    TextPatch{"Cancel", 480, 140, "DejaVu Sans 11", 30, 225},
                    TextPatch{"10:42", 740, 20, "DejaVu Sans 8", 110}};
  OCRResult result = read(makeTextImage(dialog));
  for (const char* expected : {"Could not open the file", "Try Again", "Cancel", "10:42"}) {
    EXPECT_NE(result.text.find(expected), std::string::npos) << expected << " in\n" << result.text;
  }
}

TEST_F(OCRIntegrationTest, CharacterBoxesGiveTheTightBoxOfAnyRange) {
  OCROptions options;
  options.characterBoxes = true;
  OCRResult result = read(makeTextImage(Lines("total 4821")), options);
  ASSERT_EQ(result.lines.size(), 1u);
  const OCRLine& line = result.lines[0];
  ASSERT_EQ(line.text, "total 4821");
  auto word = line.boundingBoxOfRange(0, 5), number = line.boundingBoxOfRange(6, 10);
  ASSERT_TRUE(word && number);
  EXPECT_LT(word->maxX(), number->x);
  EXPECT_GE(number->x, line.boundingBox.x);
  EXPECT_LE(number->maxX(), line.boundingBox.maxX() + 1e-9);
  EXPECT_LT(number->width, line.boundingBox.width / 2);
}

TEST_F(OCRIntegrationTest, OddButValidImagesAreRead) {
  auto sixteen = Lines("sixteen bit grey");
  sixteen.sixteenBit = true;
  auto cmyk = Lines("printed in cmyk", ".jpg");
  cmyk.cmyk = true;
  auto transparent = Lines("on a transparent page");
  transparent.transparent = true;
  auto animated = Lines("first frame only", ".gif");
  animated.secondFrame = "second frame";
  struct Case {
    TextImageOptions options;
    std::string text;
  } cases[] = {{sixteen, "sixteen bit grey"},
               {cmyk, "printed in cmyk"},
               {transparent, "on a transparent page"},  // transparent reads as white paper
               {animated, "first frame only"},
               {Lines("a webp screenshot", ".webp"), "a webp screenshot"}};
  for (const Case& c : cases) {
    EXPECT_EQ(read(makeTextImage(c.options)).text, c.text) << c.options.format;
  }
}

TEST_F(OCRIntegrationTest, EmptyTinyAndPictureOnlyImagesGiveNoTextAndNoError) {
  TextImageOptions blank;
  blank.patches.clear();
  EXPECT_TRUE(read(makeTextImage(blank)).lines.empty());
  blank.width = blank.height = 1;
  EXPECT_TRUE(read(makeTextImage(blank)).lines.empty());

  // A photograph: smooth shading with a few soft blobs and no letters.
  PixelImage photo = PixelImage::filled(400, 300, 1, 0);
  for (int y = 0; y < 300; ++y) {
    for (int x = 0; x < 400; ++x) {
      double blob = std::max(0.0, 60 - std::hypot(x - 250, y - 120)) * 2;
      photo.row(y)[x] = static_cast<uint8_t>(std::min(255.0, 40 + x * 0.3 + y * 0.2 + blob));
    }
  }
  auto result = service_.recognizeTextWithLayout(photo);
  ASSERT_TRUE(result);
  EXPECT_LE(result->lines.size(), 1u);
}

TEST_F(OCRIntegrationTest, BrokenFilesFailAsUnreadable) {
  std::string png = makeTextImage(Lines("soon cut short"));
  for (const std::string& bytes :
       {png.substr(0, png.size() / 2), std::string(), std::string("not an image at all")}) {
    auto result = service_.recognizeTextWithLayout(bytes);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().kind, OCRError::Case::unreadableImage);
  }
}

TEST_F(OCRIntegrationTest, AStripWiderThanATileIsReadAcrossItsTiles) {
  TextImageOptions strip;
  strip.width = 20000;
  strip.height = 300;
  strip.patches = {TextPatch{"left end of the strip", 40, 120},
                   TextPatch{"right end of the strip", 19500, 120}};
  OCRResult result = read(makeTextImage(strip));
  EXPECT_NE(result.text.find("left end of the strip"), std::string::npos) << result.text;
  EXPECT_NE(result.text.find("right end of the strip"), std::string::npos) << result.text;
  ASSERT_EQ(result.lines.size(), 2u);
  EXPECT_GT(result.lines[1].boundingBox.x, 0.9);  // placed on the whole strip
}

TEST_F(OCRIntegrationTest, SeveralMonitorsAreReadWithinBoundedMemory) {
  TextImageOptions desktop;
  desktop.width = 12000;
  desktop.height = 8000;
  desktop.page = 40;
  desktop.patches = {TextPatch{"first monitor", 200, 200, "DejaVu Sans 14", 230},
                     TextPatch{"last monitor", 11000, 7600, "DejaVu Sans 14", 230}};
  std::string png = makeTextImage(desktop);
  OCRResult result = read(png);
  EXPECT_NE(result.text.find("first monitor"), std::string::npos) << result.text;
  EXPECT_NE(result.text.find("last monitor"), std::string::npos) << result.text;
  // Decoded once to grey (96 MB) and read tile by tile: the whole test
  // process stays far below what decoding to full colour per recognition
  // would take.
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_LT(usage.ru_maxrss, 1024L * 1024) << "peak KiB";
}

}  // namespace
}  // namespace klipora::processing
