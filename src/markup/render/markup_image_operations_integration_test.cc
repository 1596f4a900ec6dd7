// The image operations on real pixels: colour adjustments and perspective on
// libvips and OpenCV, subjects found with GrabCut, PNGs through libvips.
#include <gtest/gtest.h>

#include "markup/render/markup_base_image.h"
#include "markup/render/markup_color_adjustment_pipeline.h"
#include "markup/render/markup_layer_drawing.h"
#include "markup/render/markup_perspective_baker.h"
#include "markup/render/markup_subject_segmentation.h"
#include "platform/linux/vips_image_codec.h"

namespace klipora::markup {
namespace {

MarkupImage Filled(int width, int height, CodableColor color) {
  auto image = MarkupImage::create(width, height);
  CairoContext cr(*image);
  setSourceColor(cr.get(), color);
  cairo_paint(cr.get());
  return std::move(*image);
}

// A red disc on a white page: a subject on a plain background.
MarkupImage Disc(int width, int height) {
  auto image = Filled(width, height, {1, 1, 1, 1});
  CairoContext cr(image);
  addEllipse(cr.get(), Rect::make(width * 0.3, height * 0.3, width * 0.4, height * 0.4));
  setSourceColor(cr.get(), {0.85, 0.1, 0.1, 1});
  cairo_fill(cr.get());
  return image;
}

MarkupImage Adjusted(const MarkupImage& image, MarkupColorAdjustments a) {
  auto out = MarkupColorAdjustmentPipeline::apply(image, a);
  EXPECT_TRUE(out);
  return out ? std::move(*out) : MarkupImage();
}

TEST(MarkupColorAdjustmentTest, PresetsAndControlsChangeColoursNotSizeOrAlpha) {
  auto grey = Filled(40, 20, {0.4, 0.4, 0.4, 1});
  auto red = Filled(40, 20, {0.8, 0.2, 0.2, 1});
  using P = MarkupColorAdjustments::Preset;
  Rgba8 mono = Adjusted(red, {.preset = P::mono}).pixel(5, 5);
  EXPECT_EQ(mono.r, mono.g);
  EXPECT_EQ(mono.g, mono.b);
  Rgba8 sepia = Adjusted(Filled(4, 4, {0.5, 0.5, 0.5, 1}), {.preset = P::sepia}).pixel(1, 1);
  EXPECT_GT(sepia.r, sepia.g);
  EXPECT_GT(sepia.g, sepia.b);  // warm brown
  Rgba8 vivid = Adjusted(red, {.preset = P::vivid}).pixel(5, 5);
  EXPECT_GT(vivid.r - vivid.g, 204 - 51);  // more saturated
  // Brightness is halved: 0.2 adds a tenth of full scale.
  EXPECT_NEAR(Adjusted(grey, {.brightness = 0.2}).pixel(1, 1).r, 102 + 25.5, 2);
  EXPECT_NEAR(Adjusted(grey, {.contrast = 2}).pixel(1, 1).r, 77, 2);  // away from mid grey
  Rgba8 inverted = Adjusted(red, {.inverted = true}).pixel(1, 1);
  EXPECT_EQ(inverted, (Rgba8{51, 204, 204, 255}));
  auto half = Filled(30, 10, {0.5, 0.5, 0.5, 0.5});
  auto out = Adjusted(half, {.preset = P::noir, .sharpness = 0.8});
  EXPECT_EQ(out.width(), 30);
  EXPECT_EQ(out.height(), 10);
  EXPECT_EQ(out.pixel(15, 5).a, 128);
}

TEST(MarkupPerspectiveBakerTest, MapsTheQuadOntoARectangle) {
  auto disc = Disc(200, 100);
  MarkupPerspectiveTransform identity{{0, 0}, {100, 0}, {0, 50}, {100, 50}};
  auto same = MarkupPerspectiveBaker::apply(disc, identity, {100, 50});
  ASSERT_TRUE(same);
  EXPECT_EQ(same->pixel(100, 50), disc.pixel(100, 50));
  // The left half of the picture, in points (half the pixels): doubled to pixels.
  MarkupPerspectiveTransform left{{0, 0}, {50, 0}, {0, 50}, {50, 50}};
  auto out = MarkupPerspectiveBaker::apply(disc, left, {100, 50});
  ASSERT_TRUE(out);
  EXPECT_EQ(out->width(), 100);
  EXPECT_EQ(out->height(), 100);
  EXPECT_EQ(out->pixel(99, 50), disc.pixel(99, 50));  // the disc's left part
  EXPECT_FALSE(MarkupPerspectiveBaker::apply(disc, left, {0, 50}));
  EXPECT_FALSE(MarkupPerspectiveBaker::apply(disc, {{0, 0}, {0, 0}, {0, 0}, {0, 0}}, {100, 50}));
}

TEST(MarkupSegmentationTest, TheSubjectKeepsItsPixelsAndTheBackgroundGoes) {
  VipsImageCodec codec;
  auto removal = MarkupBackgroundRemover::removeBackground(codec, Disc(240, 160));
  ASSERT_TRUE(removal) << removal.error().errorDescription();
  EXPECT_TRUE(removal->enabled);
  auto masked = codec.decodePixels(removal->maskedImageData->data, {PixelDecodeOptions::Format::rgba, 0});
  ASSERT_TRUE(masked);
  EXPECT_EQ(masked->width, 240);
  EXPECT_EQ(masked->row(80)[120 * 4 + 3], 255);  // the disc stays
  EXPECT_EQ(masked->row(5)[5 * 4 + 3], 0);       // the page goes

  auto plain = MarkupBackgroundRemover::removeBackground(codec, Filled(100, 100, {1, 1, 1, 1}));
  ASSERT_FALSE(plain);
  EXPECT_EQ(plain.error().errorDescription(), "No subject found to keep.");
  EXPECT_EQ(MarkupBackgroundRemover::removeBackground(codec, MarkupImage()).error().errorDescription(),
            "Could not read image pixels.");

  auto cutout = MarkupCutoutExtractor::extract(codec, Disc(240, 160), Rect::make(60, 30, 120, 100));
  ASSERT_TRUE(cutout) << cutout.error().errorDescription();
  auto sticker = codec.decodePixels(cutout->data, {PixelDecodeOptions::Format::rgba, 0});
  ASSERT_TRUE(sticker);
  EXPECT_EQ(sticker->width, 120);
  EXPECT_EQ(sticker->row(50)[60 * 4 + 3], 255);
  EXPECT_EQ(sticker->row(2)[2 * 4 + 3], 0);
  auto small = MarkupCutoutExtractor::extract(codec, Disc(240, 160), Rect::make(0, 0, 10, 40));
  EXPECT_EQ(small.error().errorDescription(), "Selection too small");
  auto outside = MarkupCutoutExtractor::extract(codec, Disc(240, 160), Rect::make(230, 0, 40, 40));
  EXPECT_EQ(outside.error().errorDescription(), "Unable to crop selection");
}

TEST(MarkupBaseImageTest, AppliesRemovalAdjustmentsAndPerspectiveInOrder) {
  VipsImageCodec codec;
  MarkupDocumentSnapshot d;
  d.sourceImageWidth = 100;
  d.sourceImageHeight = 50;
  auto source = Filled(100, 50, {0.8, 0.2, 0.2, 1});
  d.colorAdjustments = MarkupColorAdjustments{};  // identity: nothing happens
  auto same = prepareBaseImage(codec, d, source);
  ASSERT_TRUE(same);
  EXPECT_EQ(same->pixel(3, 3), source.pixel(3, 3));
  d.colorAdjustments->inverted = true;
  d.perspective = MarkupPerspectiveTransform{{0, 0}, {50, 0}, {0, 50}, {50, 50}};
  d.backgroundRemoval = MarkupBackgroundRemoval{true, ImageBytes{"not an image"}};
  auto out = prepareBaseImage(codec, d, source);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->width(), 50);
  EXPECT_EQ(out->pixel(3, 3), (Rgba8{51, 204, 204, 255}));
}

}  // namespace
}  // namespace klipora::markup
