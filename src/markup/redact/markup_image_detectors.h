// Detectors the editor runs on the image being marked up, besides redaction:
//
// MarkupQRDetector finds the QR codes in the image, with their decoded text
// where they decode, for the editor to blur.
//
// MarkupSmartStraightenDetector estimates how far the content is tilted and
// proposes the `straightenDegrees` of MarkupTransform that levels it: the
// straight segments along strong edges (window borders, rules, table lines,
// text baselines) that lie within kMaxDegrees of horizontal or vertical vote,
// by length, for their deviation; the tilt is the length-weighted mean of
// the votes near the strongest peak. It proposes zero when it is unsure:
// too few lines, no peak holding at least half the votes, or a tilt below
// kMinDegrees (an upright screenshot). Positive degrees turn the picture
// clockwise, as the renderer does.
//
// Thread rules: stateless; run off the main thread (the detector blocks).
#pragma once

#include <string>
#include <tl/expected.hpp>
#include <vector>

#include "markup/markup_values.h"
#include "platform/image_detector.h"
#include "platform/pixel_image.h"

namespace klipora::markup {

struct MarkupDetectorError {
  enum class Case { unreadableImage, detectorUnavailable };
  Case kind = Case::unreadableImage;
  std::string detail;  // what went wrong underneath, for logs
  std::string errorDescription() const;
};

class MarkupQRDetector {
 public:
  struct Detection {
    Rect frame;           // source-image pixels, top-left origin
    std::string payload;  // the decoded text; empty when it does not decode
  };
  using Detections = tl::expected<std::vector<Detection>, MarkupDetectorError>;

  explicit MarkupQRDetector(ImageDetector& detector) : detector_(detector) {}
  // unreadableImage for an image without pixels; detectorUnavailable when
  // the platform's detector fails.
  Detections detect(const PixelImage& image) const;

 private:
  ImageDetector& detector_;
};

class MarkupSmartStraightenDetector {
 public:
  static constexpr double kMaxDegrees = 5;
  static constexpr double kMinDegrees = 0.2;

  explicit MarkupSmartStraightenDetector(ImageDetector& detector) : detector_(detector) {}
  // The proposed straightenDegrees, rounded to a tenth of a degree.
  tl::expected<double, MarkupDetectorError> detect(const PixelImage& image) const;
  // The estimate from segments found in an image of `imageSize`.
  static double straightenDegrees(const std::vector<LineSegment>& segments, Size imageSize);

 private:
  ImageDetector& detector_;
};

}  // namespace klipora::markup
