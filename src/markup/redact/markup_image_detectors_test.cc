#include "markup/redact/markup_image_detectors.h"

#include <gtest/gtest.h>

#include <cmath>

#include "platform/testing/fake_image_detector.h"

namespace klipora::markup {
namespace {

using Straighten = MarkupSmartStraightenDetector;

// A segment of `length` from (x, y) at `degrees` (clockwise on screen).
LineSegment At(double x, double y, double degrees, double length = 400) {
  double a = degrees * M_PI / 180;
  return {x, y, x + length * std::cos(a), y + length * std::sin(a)};
}

TEST(MarkupQRDetectorTest, CodesKeepTheirFramesAndPayloadsAndFailuresAreTyped) {
  testing::FakeImageDetector detector;
  detector.codes = {{{10, 20, 100, 100}, "https://example.org"}, {{300, 20, 80, 80}, ""}};
  MarkupQRDetector qr(detector);
  auto found = qr.detect(PixelImage::filled(500, 300, 1, 255));
  ASSERT_TRUE(found);
  ASSERT_EQ(found->size(), 2u);
  EXPECT_EQ((*found)[0].frame, Rect::make(10, 20, 100, 100));
  EXPECT_EQ((*found)[0].payload, "https://example.org");
  EXPECT_EQ((*found)[1].payload, "");  // found but does not decode: still blurred

  auto empty = qr.detect(PixelImage{});
  ASSERT_FALSE(empty);
  EXPECT_EQ(empty.error().kind, MarkupDetectorError::Case::unreadableImage);
  EXPECT_EQ(detector.codeCalls, 1);

  detector.failure = Status::Unavailable("no models");
  auto unavailable = qr.detect(PixelImage::filled(5, 5, 1, 0));
  ASSERT_FALSE(unavailable);
  EXPECT_EQ(unavailable.error().kind, MarkupDetectorError::Case::detectorUnavailable);
  EXPECT_EQ(unavailable.error().errorDescription(),
            "The image detector isn't available. Nothing changed.");
}

TEST(MarkupSmartStraightenDetectorTest, LinesTiltedTogetherGiveTheOppositeTurn) {
  const Size size{1600, 1000};
  // Window edges tilted 2° clockwise, horizontal and vertical, drawn either way.
  std::vector<LineSegment> lines = {At(100, 100, 2), At(100, 500, 2.1), At(900, 600, 182),
                                    At(50, 50, 92, 600), At(1500, 100, -88, 500)};
  lines.push_back(At(700, 700, 30, 300));  // a diagonal: no vote
  EXPECT_DOUBLE_EQ(Straighten::straightenDegrees(lines, size), -2.0);
  std::vector<LineSegment> counter = {At(0, 0, -1.5), At(0, 300, -1.5), At(0, 600, -1.4)};
  EXPECT_DOUBLE_EQ(Straighten::straightenDegrees(counter, size), 1.5);
}

TEST(MarkupSmartStraightenDetectorTest, UnsureOrUprightOrTooSteepIsZero) {
  const Size size{1600, 1000};
  EXPECT_EQ(Straighten::straightenDegrees({}, size), 0);
  EXPECT_EQ(Straighten::straightenDegrees({At(0, 0, 2), At(0, 100, 2)}, size), 0);  // too few
  std::vector<LineSegment> upright = {At(0, 0, 0), At(0, 100, 0), At(0, 0, 90), At(9, 9, 0.1)};
  EXPECT_EQ(Straighten::straightenDegrees(upright, size), 0);
  std::vector<LineSegment> split = {At(0, 0, 3), At(0, 100, 3), At(0, 200, -3), At(0, 300, -3),
                                    At(0, 400, 0.5)};
  EXPECT_EQ(Straighten::straightenDegrees(split, size), 0);  // no peak holds half
  std::vector<LineSegment> steep = {At(0, 0, 12), At(0, 100, 12), At(0, 200, 12)};
  EXPECT_EQ(Straighten::straightenDegrees(steep, size), 0);
  std::vector<LineSegment> tiny = {At(0, 0, 2, 10), At(0, 9, 2, 10), At(0, 20, 2, 10)};
  EXPECT_EQ(Straighten::straightenDegrees(tiny, size), 0);  // glyph edges
}

TEST(MarkupSmartStraightenDetectorTest, DetectReadsTheDetectorsSegments) {
  testing::FakeImageDetector detector;
  detector.segments = {At(10, 10, 1), At(10, 60, 1), At(10, 90, 1)};
  Straighten straighten(detector);
  auto degrees = straighten.detect(PixelImage::filled(800, 600, 1, 255));
  ASSERT_TRUE(degrees);
  EXPECT_DOUBLE_EQ(*degrees, -1.0);
  EXPECT_FALSE(straighten.detect(PixelImage{}));
}

}  // namespace
}  // namespace klipora::markup
