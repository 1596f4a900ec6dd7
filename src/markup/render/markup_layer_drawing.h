// How each kind of markup layer is drawn on a Cairo context whose user space
// is the source image's pixel space (origin top left, y down). Every function
// leaves the context's state as it found it. Each layer fills its frame:
// strokes lie inside it, text wraps to its width, badges and stamps are
// centred in it; a `rotation` (radians, clockwise) turns the layer about its
// frame's centre.
//
// Thread rules: one context per thread; Pango's font map is per thread.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "markup/markup_assets.h"
#include "markup/markup_layers.h"

namespace klipora::markup {

void setSourceColor(cairo_t* cr, const CodableColor& color, double alphaFactor = 1);
// The frame with positive width and height.
Rect standardized(const Rect& rect);
// Adds a rounded rectangle path; the radius is clamped to half the shorter side.
void addRoundedRect(cairo_t* cr, const Rect& rect, double radius);
void addPolyline(cairo_t* cr, const std::vector<Point>& points);
// Adds the ellipse inscribed in `rect` as a closed sub-path; nothing when the
// rectangle is empty.
void addEllipse(cairo_t* cr, const Rect& rect);

// Round caps and joins; a one-point stroke is a dot of its width. Markers
// draw at alpha 0.85, highlighters at alpha 0.3 with the multiply blend.
void drawInkStroke(cairo_t* cr, const MarkupInkStroke& stroke);
// [w, 2w] for dotted, [4w, 3w] for dashed with w = max(1, strokeWidth);
// empty (solid) without a pattern.
std::vector<double> dashLengths(std::optional<MarkupShape::DashPattern> pattern,
                                double strokeWidth);
void drawShape(cairo_t* cr, const MarkupShape& shape);
void drawTaperedArrow(cairo_t* cr, Point from, Point to, double width, const CodableColor& color);
void drawSketchArrow(cairo_t* cr, Point from, Point to, double width, const CodableColor& color,
                     uint64_t seed);
void drawTextBox(cairo_t* cr, const MarkupTextBox& box);
void drawStepBadge(cairo_t* cr, const MarkupStepBadge& badge);
void drawRuler(cairo_t* cr, const MarkupRulerLine& ruler);
// The ruler's label: its length in its unit ("240 px", "2.50 in", "6.4 cm",
// "64 mm").
std::string rulerLabel(const MarkupRulerLine& ruler);
void drawSignatureStamp(cairo_t* cr, const MarkupSignatureStamp& stamp,
                        const MarkupSignature& signature);
// Draws `image` (width × height) fitted into `frame` keeping its aspect,
// centred, turned by `rotation`, at `opacity`.
void drawImageInFrame(cairo_t* cr, cairo_surface_t* image, const Rect& frame, double rotation,
                      double opacity);
// One line of text centred on `center` (bold when asked), in pixels.
void drawCenteredText(cairo_t* cr, const std::string& text, const char* family, double pixelSize,
                      bool bold, const CodableColor& color, Point center);

// Signature geometry: the strokes scaled from their bounding box into a frame.
struct MarkupSignatureRenderer {
  struct Path {
    std::vector<std::vector<Point>> strokes;  // in the target's coordinates
    std::vector<double> widths;               // each stroke's width, scaled
    double scale = 1;
  };
  // The bounding box of every stroke point; none without points.
  static std::optional<Rect> captureReferenceBounds(const MarkupSignature& signature);
  // Scales uniformly so the box fits `targetSize`, centred in it.
  static Path makePath(const MarkupSignature& signature, Size targetSize,
                       const Rect& referenceBounds);
};

}  // namespace klipora::markup
