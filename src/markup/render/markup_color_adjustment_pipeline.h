// MarkupColorAdjustmentPipeline: the colour adjustments of a markup document
// applied to its base image, in order: the preset (noir, mono, sepia at
// intensity 0.95, chrome, fade, instant, vivid), the colour controls
// (brightness, deliberately halved, then contrast and saturation) when they
// differ from neutral, luminance sharpening when sharpness is above 0.0001,
// and inversion. Pixel-wise steps are folded into one colour matrix and run
// as libvips operations; the result has the input's size and alpha. A step
// whose filter cannot be made is skipped.
//
// Thread rules: pure function; safe from any thread.
#pragma once

#include <optional>

#include "markup/markup_settings.h"
#include "markup/render/markup_image.h"

namespace klipora::markup {

class MarkupColorAdjustmentPipeline {
 public:
  // The adjusted copy of `input`; none only when no image can be made.
  static std::optional<MarkupImage> apply(const MarkupImage& input,
                                          const MarkupColorAdjustments& adjustments);
};

}  // namespace klipora::markup
