// The whole-canvas steps of the render pipeline (see markup_renderer.h):
// effect regions and magnifiers over the base image, spotlights, and the
// steps that make a new image from the drawn one (crop, transform, canvas
// extension, window chrome, background frame). A step that cannot make its
// image (Cairo out of memory, an empty crop) returns none.
//
// Thread rules: pure functions of their arguments; safe from any thread.
#pragma once

#include <optional>
#include <vector>

#include "markup/markup_layers.h"
#include "markup/markup_settings.h"
#include "markup/render/markup_image.h"

namespace klipora::markup {

// The blur radius (the Gaussian's standard deviation) of an effect region.
double blurRadius(double intensity);
// The side of a pixelate block: 6 px at intensity 0, growing to 40 px at 1.
int pixelateBlockSize(double intensity);
// Blurs, pixelates or blackens each region in array order, reading and
// writing only the pixels inside it. False when a blur fails.
bool drawEffects(MarkupImage& canvas, const std::vector<MarkupEffectRegion>& effects);
// Draws each magnifier's enlarged view of the canvas as it was before the
// first one, clipped to its shape, with its border.
bool drawMagnifiers(MarkupImage& canvas, const std::vector<MarkupMagnifierRegion>& magnifiers);

// Spotlights that share a dim colour, opacity and feather, dimmed together.
struct SpotlightBucket {
  CodableColor color;
  double opacity = 0;
  double feather = 0;
  std::vector<MarkupSpotlightRegion> paths;
};
std::vector<SpotlightBucket> spotlightBuckets(const std::vector<MarkupSpotlightRegion>& spotlights);
// Dims everything outside each bucket's lit shapes (even-odd, so where two
// lit shapes overlap it is dim again); a feather above 0.5 softens the edge.
bool drawSpotlights(MarkupImage& canvas, const std::vector<MarkupSpotlightRegion>& spotlights);

std::optional<MarkupImage> applyCrop(const MarkupImage& image, const MarkupCrop& crop);
std::optional<MarkupImage> applyTransform(const MarkupImage& image, const MarkupTransform& transform);
std::optional<MarkupImage> applyCanvasExtension(const MarkupImage& image,
                                                const MarkupCanvasExtension& extension);
std::optional<MarkupImage> applyChrome(const MarkupImage& image, const MarkupChromeFrame& chrome);
std::optional<MarkupImage> applyBackgroundFrame(const MarkupBackgroundFrame& frame,
                                                const MarkupImage& image);

}  // namespace klipora::markup
