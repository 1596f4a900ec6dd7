// MarkupPerspectiveBaker: perspective correction of the base image. The quad
// (in the document's source point size) is mapped onto an upright rectangle
// as wide as its longer horizontal edge and as tall as its longer vertical
// edge, with OpenCV's warpPerspective. The image's own corners return it
// unchanged.
//
// Thread rules: pure function; safe from any thread.
#pragma once

#include <optional>

#include "markup/markup_settings.h"
#include "markup/render/markup_image.h"

namespace klipora::markup {

class MarkupPerspectiveBaker {
 public:
  // None for an empty image, a point size that is not positive, or a quad
  // that encloses no area.
  static std::optional<MarkupImage> apply(const MarkupImage& image,
                                          const MarkupPerspectiveTransform& quad,
                                          Size sourcePointSize);
};

}  // namespace klipora::markup
