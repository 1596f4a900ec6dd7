#include "markup/redact/markup_image_detectors.h"

#include <algorithm>
#include <cmath>

#include "platform/localization.h"

namespace klipora::markup {
namespace {

using Error = MarkupDetectorError;

bool HasPixels(const PixelImage& image) {
  return !image.empty() &&
         image.pixels.size() >= static_cast<size_t>(image.bytesPerRow()) * image.height;
}

tl::unexpected<Error> Failed(const Status& status) {
  if (status.code() == Status::Code::kInvalidArgument) {
    return tl::unexpected(Error{Error::Case::unreadableImage, status.message()});
  }
  return tl::unexpected(Error{Error::Case::detectorUnavailable, status.message()});
}

constexpr double kDegrees = 180 / M_PI;
// Votes within this of the peak count for it, and are averaged into the tilt.
constexpr double kPeakWidth = 0.3;
constexpr int kMinSegments = 3;

}  // namespace

std::string MarkupDetectorError::errorDescription() const {
  switch (kind) {
    case Case::unreadableImage:
      // TRANSLATORS: a detector (QR codes, straighten) could not read the image.
      return tr("Could not read image pixels.");
    case Case::detectorUnavailable:
      // TRANSLATORS: the image detector (QR codes, straighten) failed or is missing.
      return tr("The image detector isn't available. Nothing changed.");
  }
  return {};
}

MarkupQRDetector::Detections MarkupQRDetector::detect(const PixelImage& image) const {
  if (!HasPixels(image)) return tl::unexpected(Error{Error::Case::unreadableImage, "no pixels"});
  auto codes = detector_.detectQRCodes(image);
  if (!codes) return Failed(codes.error());
  std::vector<Detection> found;
  for (const DetectedCode& code : *codes) {
    const ImageRect& f = code.frame;
    found.push_back({Rect::make(f.x, f.y, f.width, f.height), code.payload});
  }
  return found;
}

tl::expected<double, MarkupDetectorError> MarkupSmartStraightenDetector::detect(
    const PixelImage& image) const {
  if (!HasPixels(image)) return tl::unexpected(Error{Error::Case::unreadableImage, "no pixels"});
  auto segments = detector_.detectLineSegments(image);
  if (!segments) return Failed(segments.error());
  return straightenDegrees(*segments, Size{static_cast<double>(image.width),
                                           static_cast<double>(image.height)});
}

double MarkupSmartStraightenDetector::straightenDegrees(const std::vector<LineSegment>& segments,
                                                        Size imageSize) {
  struct Vote {
    double deviation, weight;
  };
  std::vector<Vote> votes;
  double total = 0;
  // Short segments are letters and icons, whose edges lean as they please.
  const double minLength = std::max(20.0, std::min(imageSize.width, imageSize.height) / 10);
  for (const LineSegment& s : segments) {
    double dx = s.x2 - s.x1, dy = s.y2 - s.y1, length = std::hypot(dx, dy);
    if (!std::isfinite(length) || length < minLength) continue;
    double angle = std::atan2(dy, dx) * kDegrees;  // y downwards: clockwise is positive
    if (angle <= -90) angle += 180;
    if (angle > 90) angle -= 180;
    double deviation = angle;
    if (std::abs(angle) > 45) deviation = angle > 0 ? angle - 90 : angle + 90;
    if (std::abs(deviation) > kMaxDegrees) continue;
    votes.push_back({deviation, length});
    total += length;
  }
  if (static_cast<int>(votes.size()) < kMinSegments || total <= 0) return 0;

  // The peak: the deviation whose neighbourhood holds the most length.
  double best = 0, bestWeight = -1;
  for (const Vote& candidate : votes) {
    double weight = 0;
    for (const Vote& v : votes) {
      if (std::abs(v.deviation - candidate.deviation) <= kPeakWidth) weight += v.weight;
    }
    if (weight > bestWeight) best = candidate.deviation, bestWeight = weight;
  }
  if (bestWeight < total / 2) return 0;
  double sum = 0;
  for (const Vote& v : votes) {
    if (std::abs(v.deviation - best) <= kPeakWidth) sum += v.deviation * v.weight;
  }
  double tilt = sum / bestWeight;
  if (std::abs(tilt) < kMinDegrees) return 0;
  // Turning by the opposite of the tilt levels the content.
  return -std::round(tilt * 10) / 10;
}

}  // namespace klipora::markup
