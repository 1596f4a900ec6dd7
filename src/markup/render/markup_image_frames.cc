// The steps that make a new image around the drawn one: crop, transform,
// canvas extension, window chrome and background frame.
#include <algorithm>
#include <cmath>

#include "markup/render/markup_layer_drawing.h"
#include "markup/render/markup_render_steps.h"
#include "markup/render/pixel_blur.h"

namespace klipora::markup {
namespace {

int RoundPixels(double value) {
  return static_cast<int>(std::lround(std::isfinite(value) ? value : 0));
}

double NonNegative(double value) { return std::isfinite(value) && value > 0 ? value : 0; }

// Paints `image` at (x, y) with `extend` beyond its edges.
void PaintImage(cairo_t* cr, const MarkupImage& image, double x, double y,
                cairo_extend_t extend = CAIRO_EXTEND_NONE) {
  cairo_set_source_surface(cr, image.surface(), x, y);
  cairo_pattern_set_extend(cairo_get_source(cr), extend);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
  cairo_paint(cr);
}

// A shadow of `shape` drawn through a blurred coverage mask.
bool DrawShadow(cairo_t* cr, int width, int height, const Rect& shape, double cornerRadius,
                const MarkupBackgroundFrame::Shadow& shadow) {
  double sigma = NonNegative(shadow.radius) / 2;
  double margin = std::ceil(sigma * 3) + 1;
  int x0 = std::clamp(static_cast<int>(std::floor(shape.minX() - margin)), 0, width);
  int y0 = std::clamp(static_cast<int>(std::floor(shape.minY() - margin)), 0, height);
  int x1 = std::clamp(static_cast<int>(std::ceil(shape.maxX() + margin)), 0, width);
  int y1 = std::clamp(static_cast<int>(std::ceil(shape.maxY() + margin)), 0, height);
  if (x1 <= x0 || y1 <= y0) return true;
  SoftMask mask(x0, y0, x1 - x0, y1 - y0, sigma);
  if (!mask.ok()) return false;
  addRoundedRect(mask.context(), shape, cornerRadius);
  cairo_set_source_rgba(mask.context(), 0, 0, 0, 1);
  cairo_fill(mask.context());
  mask.blur();
  CodableColor color = shadow.color;
  color.alpha = std::clamp(shadow.opacity, 0.0, 1.0);
  cairo_save(cr);
  cairo_rectangle(cr, x0, y0, x1 - x0, y1 - y0);
  cairo_clip(cr);
  setSourceColor(cr, color);
  mask.fill(cr);
  cairo_restore(cr);
  return true;
}

}  // namespace

std::optional<MarkupImage> applyCrop(const MarkupImage& image, const MarkupCrop& crop) {
  Rect r = standardized(crop.rect);
  int x0 = std::clamp(RoundPixels(r.minX()), 0, image.width());
  int y0 = std::clamp(RoundPixels(r.minY()), 0, image.height());
  int x1 = std::clamp(RoundPixels(r.maxX()), 0, image.width());
  int y1 = std::clamp(RoundPixels(r.maxY()), 0, image.height());
  auto out = MarkupImage::create(x1 - x0, y1 - y0);
  if (!out) return std::nullopt;
  CairoContext cr(*out);
  cairo_set_operator(cr.get(), CAIRO_OPERATOR_SOURCE);
  PaintImage(cr.get(), image, -x0, -y0);
  if (!cr.ok()) return std::nullopt;
  return out;
}

std::optional<MarkupImage> applyTransform(const MarkupImage& image,
                                          const MarkupTransform& transform) {
  const int w = image.width(), h = image.height();
  const int turns = static_cast<int>(((transform.rotationQuarterTurns % 4) + 4) % 4);
  const bool swap = turns % 2 == 1;
  const int ow = swap ? h : w, oh = swap ? w : h;
  auto turned = MarkupImage::create(ow, oh);
  if (!turned) return std::nullopt;
  {
    CairoContext context(*turned);
    cairo_t* cr = context.get();
    // Flips act on the finished orientation, so they are applied last in
    // image order, which is first in the matrix.
    if (transform.flipHorizontal) cairo_translate(cr, ow, 0), cairo_scale(cr, -1, 1);
    if (transform.flipVertical) cairo_translate(cr, 0, oh), cairo_scale(cr, 1, -1);
    // Quarter turns are clockwise on screen.
    if (turns == 1) cairo_translate(cr, ow, 0), cairo_rotate(cr, M_PI / 2);
    if (turns == 2) cairo_translate(cr, ow, oh), cairo_rotate(cr, M_PI);
    if (turns == 3) cairo_translate(cr, 0, oh), cairo_rotate(cr, -M_PI / 2);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    PaintImage(cr, image, 0, 0);
    if (!context.ok()) return std::nullopt;
  }
  double degrees = std::isfinite(transform.straightenDegrees) ? transform.straightenDegrees : 0;
  if (std::abs(degrees) < 1e-6) return turned;
  // Straightening turns the picture about its centre and zooms in just enough
  // that no empty corner shows; the size stays.
  const double angle = degrees * M_PI / 180, c = std::abs(std::cos(angle)),
               s = std::abs(std::sin(angle));
  const double zoom = std::max((ow * c + oh * s) / ow, (ow * s + oh * c) / oh);
  auto out = MarkupImage::create(ow, oh);
  if (!out) return std::nullopt;
  CairoContext context(*out);
  cairo_t* cr = context.get();
  cairo_translate(cr, ow / 2.0, oh / 2.0);
  cairo_rotate(cr, angle);
  cairo_scale(cr, zoom, zoom);
  cairo_translate(cr, -ow / 2.0, -oh / 2.0);
  cairo_set_source_surface(cr, turned->surface(), 0, 0);
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  cairo_paint(cr);
  if (!context.ok()) return std::nullopt;
  return out;
}

std::optional<MarkupImage> applyCanvasExtension(const MarkupImage& image,
                                                const MarkupCanvasExtension& extension) {
  const int left = RoundPixels(NonNegative(extension.left));
  const int top = RoundPixels(NonNegative(extension.top));
  const int width = image.width() + left + RoundPixels(NonNegative(extension.right));
  const int height = image.height() + top + RoundPixels(NonNegative(extension.bottom));
  auto out = MarkupImage::create(width, height);
  if (!out) return std::nullopt;
  CairoContext context(*out);
  cairo_t* cr = context.get();
  if (const auto* solid = std::get_if<MarkupCanvasExtension::Solid>(&extension.fill)) {
    setSourceColor(cr, solid->color);
    cairo_paint(cr);
    PaintImage(cr, image, left, top);
  } else {
    bool mirror = std::holds_alternative<MarkupCanvasExtension::EdgeMirror>(extension.fill);
    PaintImage(cr, image, left, top, mirror ? CAIRO_EXTEND_REFLECT : CAIRO_EXTEND_PAD);
  }
  if (!context.ok()) return std::nullopt;
  return out;
}

std::optional<MarkupImage> applyChrome(const MarkupImage& image, const MarkupChromeFrame& chrome) {
  const bool dark = chrome.variant == MarkupChromeFrame::Variant::dark;
  const int bar = RoundPixels(NonNegative(chrome.titlebarHeight));
  const int side = chrome.showSidebar ? RoundPixels(NonNegative(chrome.sidebarWidth)) : 0;
  const int width = image.width() + side, height = image.height() + bar;
  auto out = MarkupImage::create(width, height);
  if (!out) return std::nullopt;
  CairoContext context(*out);
  cairo_t* cr = context.get();
  const Rect window = Rect::make(0, 0, width, height);
  const double radius = std::clamp(NonNegative(chrome.cornerRadius), 0.0, std::min(width, height) / 2.0);
  const CodableColor barColor = dark ? CodableColor{0.17, 0.17, 0.18, 1} : CodableColor{0.925, 0.925, 0.93, 1};
  const CodableColor sideColor = dark ? CodableColor{0.13, 0.13, 0.14, 1} : CodableColor{0.96, 0.96, 0.965, 1};
  const CodableColor lineColor = dark ? CodableColor{1, 1, 1, 0.12} : CodableColor{0, 0, 0, 0.14};
  const CodableColor textColor = dark ? CodableColor{0.86, 0.86, 0.88, 1} : CodableColor{0.22, 0.22, 0.24, 1};
  addRoundedRect(cr, window, radius);
  cairo_clip(cr);
  setSourceColor(cr, barColor);
  cairo_rectangle(cr, 0, 0, width, bar);
  cairo_fill(cr);
  if (side > 0) {
    setSourceColor(cr, sideColor);
    cairo_rectangle(cr, 0, bar, side, height - bar);
    cairo_fill(cr);
    // A few quiet list rows, so the sidebar reads as one.
    const double row = std::max(22.0, bar * 0.8);
    CodableColor rowColor = textColor;
    rowColor.alpha = 0.13;
    setSourceColor(cr, rowColor);
    for (int i = 0; i < 8 && bar + row * (i + 1) < height; ++i) {
      double w = side * (i % 3 == 0 ? 0.62 : 0.48);
      addRoundedRect(cr, Rect::make(side * 0.12, bar + row * (i + 0.75), w, row * 0.32), row * 0.16);
    }
    cairo_fill(cr);
    setSourceColor(cr, lineColor);
    cairo_rectangle(cr, side - 1, bar, 1, height - bar);
    cairo_fill(cr);
  }
  PaintImage(cr, image, side, bar);
  if (bar > 0) {
    setSourceColor(cr, lineColor);
    cairo_rectangle(cr, 0, bar - 1, width, 1);
    cairo_fill(cr);
    // Three window buttons at the left of the title bar.
    if (bar >= 12) {
      const double r = bar * 0.18, gap = r * 3.2;
      const CodableColor buttons[3] = {{1, 0.37, 0.34, 1}, {1, 0.74, 0.18, 1}, {0.16, 0.79, 0.25, 1}};
      for (int i = 0; i < 3; ++i) {
        cairo_new_sub_path(cr);
        cairo_arc(cr, bar * 0.55 + i * gap, bar / 2.0, r, 0, 2 * M_PI);
        setSourceColor(cr, buttons[i]);
        cairo_fill(cr);
      }
    }
    if (!chrome.title.empty()) {
      drawCenteredText(cr, chrome.title, "Sans", bar * 0.4, true, textColor,
                       {width / 2.0, bar / 2.0});
    }
  }
  cairo_reset_clip(cr);
  addRoundedRect(cr, Rect::make(0.5, 0.5, width - 1, height - 1), std::max(radius - 0.5, 0.0));
  setSourceColor(cr, lineColor);
  cairo_set_line_width(cr, 1);
  cairo_stroke(cr);
  if (!context.ok()) return std::nullopt;
  return out;
}

std::optional<MarkupImage> applyBackgroundFrame(const MarkupBackgroundFrame& frame,
                                                const MarkupImage& image) {
  const double padding = NonNegative(frame.padding);
  const double paddingVertical = frame.paddingVertical ? NonNegative(*frame.paddingVertical) : padding;
  const int width = RoundPixels(image.width() + 2 * padding);
  const int height = RoundPixels(image.height() + 2 * paddingVertical);
  auto out = MarkupImage::create(width, height);
  if (!out) return std::nullopt;
  CairoContext context(*out);
  cairo_t* cr = context.get();
  cairo_set_antialias(cr, CAIRO_ANTIALIAS_BEST);
  if (const auto* solid = std::get_if<MarkupBackgroundFrame::Solid>(&frame.fill)) {
    setSourceColor(cr, solid->color);
    cairo_paint(cr);
  } else {
    const auto& gradient = std::get<MarkupBackgroundFrame::LinearGradient>(frame.fill);
    // The angle turns counter-clockwise on screen from left-to-right; the
    // gradient spans the output's extent along that direction.
    double a = gradient.angleDegrees * M_PI / 180;
    double dx = std::cos(a), dy = -std::sin(a);
    double half = (std::abs(width * dx) + std::abs(height * dy)) / 2;
    double cx = width / 2.0, cy = height / 2.0;
    cairo_pattern_t* pattern =
        cairo_pattern_create_linear(cx - dx * half, cy - dy * half, cx + dx * half, cy + dy * half);
    auto stop = [&](double at, const CodableColor& c) {
      cairo_pattern_add_color_stop_rgba(pattern, at, c.red, c.green, c.blue, c.alpha);
    };
    stop(0, gradient.start);
    stop(1, gradient.end);
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    cairo_set_source(cr, pattern);
    cairo_paint(cr);
    cairo_pattern_destroy(pattern);
  }
  const Rect placed = Rect::make(padding, paddingVertical, image.width(), image.height());
  const double radius = std::max(
      0.0, std::min(frame.cornerRadius, std::min(image.width(), image.height()) / 2.0));
  if (frame.shadow && frame.shadow->opacity > 0) {
    // A positive offsetY casts the shadow downwards.
    Rect cast = placed.offsetBy(frame.shadow->offsetX, frame.shadow->offsetY);
    if (!DrawShadow(cr, width, height, cast, radius, *frame.shadow)) return std::nullopt;
  }
  addRoundedRect(cr, placed, radius);
  cairo_clip(cr);
  cairo_set_source_surface(cr, image.surface(), padding, paddingVertical);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_BEST);
  cairo_paint(cr);
  if (!context.ok()) return std::nullopt;
  return out;
}

}  // namespace klipora::markup
