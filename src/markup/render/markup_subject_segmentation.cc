#include "markup/render/markup_subject_segmentation.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "markup/render/markup_layer_drawing.h"

namespace klipora::markup {
namespace {

// A share of the working copy kept as background seed on every side.
constexpr double kBorderShare = 0.04;
// Fewer foreground pixels than this share means no subject.
constexpr double kMinimumForeground = 0.005;

enum class Outcome { found, none, failed };

// The foreground coverage (0..255) of `bgra`, the size of the input.
Outcome Segment(const cv::Mat& bgra, cv::Mat& coverage, std::string& message) {
  // OpenCV reports bad input by throwing; nothing of it leaves this function.
  try {
    cv::Mat bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    double scale = std::min(1.0, static_cast<double>(kWorkingSide) / std::max(bgr.cols, bgr.rows));
    cv::Mat small;
    if (scale < 1) {
      cv::resize(bgr, small, cv::Size(), scale, scale, cv::INTER_AREA);
    } else {
      small = bgr;
    }
    int mx = std::max(1, static_cast<int>(small.cols * kBorderShare));
    int my = std::max(1, static_cast<int>(small.rows * kBorderShare));
    cv::Rect seed(mx, my, small.cols - 2 * mx, small.rows - 2 * my);
    if (seed.width < 2 || seed.height < 2) return Outcome::none;
    cv::Mat mask(small.size(), CV_8UC1, cv::Scalar(cv::GC_BGD));
    cv::Mat background, foreground;
    cv::grabCut(small, mask, seed, background, foreground, 4, cv::GC_INIT_WITH_RECT);
    cv::Mat chosen = (mask == cv::GC_FGD) | (mask == cv::GC_PR_FGD);
    if (cv::countNonZero(chosen) < kMinimumForeground * chosen.total()) return Outcome::none;
    cv::resize(chosen, coverage, bgra.size(), 0, 0, cv::INTER_LINEAR);
    return Outcome::found;
  } catch (const cv::Exception& e) {
    message = e.what();
    return Outcome::failed;
  }
}

// `image` (premultiplied) with its alpha scaled by `coverage`.
std::optional<MarkupImage> Masked(const cv::Mat& bgra, const cv::Mat& coverage) {
  auto out = MarkupImage::create(bgra.cols, bgra.rows);
  if (!out) return std::nullopt;
  for (int y = 0; y < bgra.rows; ++y) {
    const uint8_t* in = bgra.ptr<uint8_t>(y);
    const uint8_t* c = coverage.ptr<uint8_t>(y);
    uint8_t* o = out->data() + static_cast<size_t>(y) * out->stride();
    for (int x = 0; x < bgra.cols; ++x) {
      for (int k = 0; k < 4; ++k) o[x * 4 + k] = static_cast<uint8_t>((in[x * 4 + k] * c[x] + 127) / 255);
    }
  }
  cairo_surface_mark_dirty(out->surface());
  return out;
}

cv::Mat View(const MarkupImage& image) {
  cairo_surface_flush(image.surface());
  return cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uint8_t*>(image.data()),
                 static_cast<size_t>(image.stride()));
}

}  // namespace

std::string MarkupBackgroundRemover::Failure::errorDescription() const {
  switch (error) {
    case RemovalError::unreadableImage:
      return "Could not read image pixels.";
    case RemovalError::noForeground:
      return "No subject found to keep.";
    case RemovalError::encodingFailed:
      return "Could not encode the masked image.";
    case RemovalError::visionFailed:
      break;
  }
  return "Background removal failed: " + message;
}

tl::expected<MarkupBackgroundRemoval, MarkupBackgroundRemover::Failure>
MarkupBackgroundRemover::removeBackground(ImageCodec& codec, const MarkupImage& image) {
  if (image.empty()) return tl::unexpected(Failure{RemovalError::unreadableImage, ""});
  cv::Mat bgra = View(image);
  cv::Mat coverage;
  std::string message;
  switch (Segment(bgra, coverage, message)) {
    case Outcome::none:
      return tl::unexpected(Failure{RemovalError::noForeground, ""});
    case Outcome::failed:
      return tl::unexpected(Failure{RemovalError::visionFailed, message});
    case Outcome::found:
      break;
  }
  auto masked = Masked(bgra, coverage);
  auto png = masked ? codec.encodePng(masked->toPixels()) : Result<std::string>(tl::unexpected(Status::Internal("")));
  if (!png) return tl::unexpected(Failure{RemovalError::encodingFailed, ""});
  return MarkupBackgroundRemoval{true, ImageBytes{std::move(*png)}};
}

std::string MarkupCutoutExtractor::Failure::errorDescription() const {
  switch (error) {
    case ExtractionError::invalidDimensions:
      return "Invalid image dimensions";
    case ExtractionError::selectionTooSmall:
      return "Selection too small";
    case ExtractionError::cropFailed:
      return "Unable to crop selection";
    case ExtractionError::noForeground:
      return "No subject found to keep.";
    case ExtractionError::encodingFailed:
      return "Could not encode cutout";
    case ExtractionError::visionFailed:
      break;
  }
  return message;
}

tl::expected<ImageBytes, MarkupCutoutExtractor::Failure> MarkupCutoutExtractor::extract(
    ImageCodec& codec, const MarkupImage& image, const Rect& selection) {
  if (image.empty()) return tl::unexpected(Failure{ExtractionError::invalidDimensions, ""});
  Rect r = standardized(selection);
  if (!(r.size.width >= kMinimumSelectionSide) || !(r.size.height >= kMinimumSelectionSide)) {
    return tl::unexpected(Failure{ExtractionError::selectionTooSmall, ""});
  }
  cv::Rect crop(static_cast<int>(std::floor(r.minX())), static_cast<int>(std::floor(r.minY())),
                static_cast<int>(std::ceil(r.size.width)), static_cast<int>(std::ceil(r.size.height)));
  crop &= cv::Rect(0, 0, image.width(), image.height());
  if (crop.width < kMinimumSelectionSide || crop.height < kMinimumSelectionSide) {
    return tl::unexpected(Failure{ExtractionError::cropFailed, ""});
  }
  cv::Mat area = View(image)(crop).clone();
  cv::Mat coverage;
  std::string message;
  switch (Segment(area, coverage, message)) {
    case Outcome::none:
      return tl::unexpected(Failure{ExtractionError::noForeground, ""});
    case Outcome::failed:
      return tl::unexpected(Failure{ExtractionError::visionFailed, message});
    case Outcome::found:
      break;
  }
  auto masked = Masked(area, coverage);
  if (!masked) return tl::unexpected(Failure{ExtractionError::encodingFailed, ""});
  auto png = codec.encodePng(masked->toPixels());
  if (!png) return tl::unexpected(Failure{ExtractionError::encodingFailed, ""});
  return ImageBytes{std::move(*png)};
}

}  // namespace klipora::markup
