#include "markup/render/markup_perspective_baker.h"

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace klipora::markup {

std::optional<MarkupImage> MarkupPerspectiveBaker::apply(const MarkupImage& image,
                                                         const MarkupPerspectiveTransform& quad,
                                                         Size pointSize) {
  const double w = pointSize.width, h = pointSize.height;
  if (quad.topLeft == Point{0, 0} && quad.topRight == Point{w, 0} &&
      quad.bottomLeft == Point{0, h} && quad.bottomRight == Point{w, h}) {
    return image.clone();
  }
  if (image.empty() || !(w > 0) || !(h > 0)) return std::nullopt;
  const double sx = image.width() / w, sy = image.height() / h;
  auto pixel = [sx, sy](Point p) { return cv::Point2f(p.x * sx, p.y * sy); };
  const cv::Point2f source[4] = {pixel(quad.topLeft), pixel(quad.topRight),
                                 pixel(quad.bottomRight), pixel(quad.bottomLeft)};
  auto distance = [](cv::Point2f a, cv::Point2f b) { return std::hypot(a.x - b.x, a.y - b.y); };
  const double outWidth = std::max(distance(source[0], source[1]), distance(source[3], source[2]));
  const double outHeight = std::max(distance(source[0], source[3]), distance(source[1], source[2]));
  if (!std::isfinite(outWidth) || !std::isfinite(outHeight) || outWidth < 1 || outHeight < 1) {
    return std::nullopt;
  }
  auto out = MarkupImage::create(static_cast<int>(std::lround(outWidth)),
                                 static_cast<int>(std::lround(outHeight)));
  if (!out) return std::nullopt;
  const cv::Point2f target[4] = {{0, 0},
                                 {static_cast<float>(out->width()), 0},
                                 {static_cast<float>(out->width()), static_cast<float>(out->height())},
                                 {0, static_cast<float>(out->height())}};
  cairo_surface_flush(image.surface());
  // OpenCV reports bad input by throwing; nothing of it leaves this function.
  try {
    cv::Mat matrix = cv::getPerspectiveTransform(source, target);
    const cv::Mat in(image.height(), image.width(), CV_8UC4, const_cast<uint8_t*>(image.data()),
                     static_cast<size_t>(image.stride()));
    cv::Mat warped(out->height(), out->width(), CV_8UC4, out->data(),
                   static_cast<size_t>(out->stride()));
    cv::warpPerspective(in, warped, matrix, warped.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                        cv::Scalar(0, 0, 0, 0));
  } catch (const cv::Exception&) {
    return std::nullopt;
  }
  cairo_surface_mark_dirty(out->surface());
  return out;
}

}  // namespace klipora::markup
