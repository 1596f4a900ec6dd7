// Ink, text, badges, rulers, signatures and bitmaps in frames.
#include "markup/render/markup_layer_drawing.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "markup/render/markup_arrow_geometry.h"

namespace klipora::markup {
namespace {

void RotateAbout(cairo_t* cr, Point center, double rotation) {
  if (rotation == 0) return;
  cairo_translate(cr, center.x, center.y);
  cairo_rotate(cr, rotation);
  cairo_translate(cr, -center.x, -center.y);
}

// Owns a Pango layout on `cr` set in `family` at `pixelSize`.
class Layout {
 public:
  Layout(cairo_t* cr, const std::string& family, double pixelSize, bool bold, bool italic)
      : layout_(pango_cairo_create_layout(cr)) {
    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family(font, family.empty() ? "Sans" : family.c_str());
    pango_font_description_set_absolute_size(font, std::max(pixelSize, 1.0) * PANGO_SCALE);
    pango_font_description_set_weight(font, bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_style(font, italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    pango_layout_set_font_description(layout_, font);
    pango_font_description_free(font);
  }
  ~Layout() { g_object_unref(layout_); }
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;
  PangoLayout* get() const { return layout_; }
  // The ink-independent size of the laid-out text, in pixels.
  Size size() const {
    int w = 0, h = 0;
    pango_layout_get_size(layout_, &w, &h);
    return {static_cast<double>(w) / PANGO_SCALE, static_cast<double>(h) / PANGO_SCALE};
  }

 private:
  PangoLayout* layout_;
};

double Luminance(const CodableColor& c) { return 0.299 * c.red + 0.587 * c.green + 0.114 * c.blue; }

void AddCircle(cairo_t* cr, Point center, double radius) {
  cairo_new_sub_path(cr);
  cairo_arc(cr, center.x, center.y, std::max(radius, 0.0), 0, 2 * M_PI);
}

}  // namespace

void setSourceColor(cairo_t* cr, const CodableColor& c, double alphaFactor) {
  auto unit = [](double v) { return std::clamp(std::isfinite(v) ? v : 0.0, 0.0, 1.0); };
  cairo_set_source_rgba(cr, unit(c.red), unit(c.green), unit(c.blue), unit(c.alpha * alphaFactor));
}

Rect standardized(const Rect& r) {
  Rect out = r;
  if (out.size.width < 0) out.origin.x += out.size.width, out.size.width = -out.size.width;
  if (out.size.height < 0) out.origin.y += out.size.height, out.size.height = -out.size.height;
  return out;
}

void addRoundedRect(cairo_t* cr, const Rect& rect, double radius) {
  Rect r = standardized(rect);
  double k = std::clamp(radius, 0.0, std::min(r.size.width, r.size.height) / 2);
  if (k <= 0) {
    cairo_rectangle(cr, r.minX(), r.minY(), r.size.width, r.size.height);
    return;
  }
  cairo_new_sub_path(cr);
  cairo_arc(cr, r.maxX() - k, r.minY() + k, k, -M_PI / 2, 0);
  cairo_arc(cr, r.maxX() - k, r.maxY() - k, k, 0, M_PI / 2);
  cairo_arc(cr, r.minX() + k, r.maxY() - k, k, M_PI / 2, M_PI);
  cairo_arc(cr, r.minX() + k, r.minY() + k, k, M_PI, 3 * M_PI / 2);
  cairo_close_path(cr);
}

void addPolyline(cairo_t* cr, const std::vector<Point>& points) {
  if (points.empty()) return;
  cairo_move_to(cr, points[0].x, points[0].y);
  for (size_t i = 1; i < points.size(); ++i) cairo_line_to(cr, points[i].x, points[i].y);
}

void addEllipse(cairo_t* cr, const Rect& rect) {
  Rect r = standardized(rect);
  if (r.size.width <= 0 || r.size.height <= 0) return;
  cairo_save(cr);
  cairo_translate(cr, r.center().x, r.center().y);
  cairo_scale(cr, r.size.width / 2, r.size.height / 2);
  cairo_new_sub_path(cr);
  cairo_arc(cr, 0, 0, 1, 0, 2 * M_PI);
  cairo_close_path(cr);
  cairo_restore(cr);
}

void drawInkStroke(cairo_t* cr, const MarkupInkStroke& stroke) {
  if (stroke.points.empty()) return;
  cairo_save(cr);
  addPolyline(cr, stroke.points);
  if (stroke.points.size() == 1) {
    // A single click leaves a round dot.
    cairo_line_to(cr, stroke.points[0].x + 0.1, stroke.points[0].y + 0.1);
  }
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  cairo_set_line_width(cr, std::max(stroke.width, 0.0));
  CodableColor color = stroke.color;
  switch (stroke.kind) {
    case MarkupInkStroke::Kind::marker:
      color.alpha = 0.85;
      break;
    case MarkupInkStroke::Kind::highlighter:
      color.alpha = 0.3;
      cairo_set_operator(cr, CAIRO_OPERATOR_MULTIPLY);
      break;
    case MarkupInkStroke::Kind::pen:
      break;
  }
  setSourceColor(cr, color);
  cairo_stroke(cr);
  cairo_restore(cr);
}

void drawTextBox(cairo_t* cr, const MarkupTextBox& box) {
  Rect frame = standardized(box.frame);
  if (frame.size.width <= 0 || frame.size.height <= 0) return;
  cairo_save(cr);
  RotateAbout(cr, frame.center(), box.rotation);
  const double size = std::max(box.fontSize, 1.0);
  const double padding =
      box.backgroundColor ? std::max(6.0, size * 0.4) : std::max(2.0, size * 0.15);
  if (box.backgroundColor) {
    addRoundedRect(cr, frame, std::min(size * 0.35, 10.0));
    setSourceColor(cr, *box.backgroundColor);
    cairo_fill(cr);
  }
  Layout layout(cr, box.fontName, size, box.isBold, box.isItalic);
  PangoLayout* l = layout.get();
  int width = static_cast<int>(std::max(frame.size.width - 2 * padding, 1.0) * PANGO_SCALE);
  pango_layout_set_width(l, width);
  pango_layout_set_wrap(l, PANGO_WRAP_WORD_CHAR);
  switch (box.alignment) {
    case MarkupTextBox::Alignment::left:
      pango_layout_set_alignment(l, PANGO_ALIGN_LEFT);
      break;
    case MarkupTextBox::Alignment::center:
      pango_layout_set_alignment(l, PANGO_ALIGN_CENTER);
      break;
    case MarkupTextBox::Alignment::right:
      pango_layout_set_alignment(l, PANGO_ALIGN_RIGHT);
      break;
    case MarkupTextBox::Alignment::justify:
      pango_layout_set_alignment(l, PANGO_ALIGN_LEFT);
      pango_layout_set_justify(l, TRUE);
      break;
  }
  pango_layout_set_text(l, box.text.c_str(), static_cast<int>(box.text.size()));
  if (box.isUnderlined) {
    PangoAttrList* attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE));
    pango_layout_set_attributes(l, attributes);
    pango_attr_list_unref(attributes);
  }
  setSourceColor(cr, box.textColor);
  cairo_move_to(cr, frame.minX() + padding, frame.minY() + padding);
  pango_cairo_show_layout(cr, l);
  cairo_restore(cr);
}

void drawCenteredText(cairo_t* cr, const std::string& text, const char* family, double pixelSize,
                      bool bold, const CodableColor& color, Point center) {
  cairo_save(cr);
  Layout layout(cr, family, pixelSize, bold, false);
  pango_layout_set_text(layout.get(), text.c_str(), static_cast<int>(text.size()));
  // Centre the ink of the text, so digits sit in the optical middle.
  PangoRectangle ink, logical;
  pango_layout_get_pixel_extents(layout.get(), &ink, &logical);
  setSourceColor(cr, color);
  cairo_move_to(cr, center.x - ink.x - ink.width / 2.0, center.y - ink.y - ink.height / 2.0);
  pango_cairo_show_layout(cr, layout.get());
  cairo_restore(cr);
}

void drawStepBadge(cairo_t* cr, const MarkupStepBadge& badge) {
  Rect frame = standardized(badge.frame);
  double d = std::min(frame.size.width, frame.size.height);
  if (d < 1) return;
  Point c = frame.center();
  std::string text = std::to_string(badge.number);
  double digits = static_cast<double>(text.size());
  double fontSize = d * (digits <= 1 ? 0.56 : digits == 2 ? 0.48 : 0.9 / digits);
  cairo_save(cr);
  switch (badge.style) {
    case MarkupStepBadge::Style::filled:
      AddCircle(cr, c, d / 2);
      setSourceColor(cr, badge.fillColor);
      cairo_fill(cr);
      break;
    case MarkupStepBadge::Style::outlined: {
      double ring = std::max(1.5, d * 0.09);
      AddCircle(cr, c, (d - ring) / 2);
      setSourceColor(cr, badge.fillColor);
      cairo_set_line_width(cr, ring);
      cairo_stroke(cr);
      break;
    }
    case MarkupStepBadge::Style::squircle:
      addRoundedRect(cr, Rect::make(c.x - d / 2, c.y - d / 2, d, d), d * 0.32);
      setSourceColor(cr, badge.fillColor);
      cairo_fill(cr);
      break;
    case MarkupStepBadge::Style::minimal:
      // A light wash of the fill behind a larger number.
      AddCircle(cr, c, d / 2);
      setSourceColor(cr, badge.fillColor, 0.25);
      cairo_fill(cr);
      fontSize *= 1.15;
      break;
  }
  drawCenteredText(cr, text, "Sans", fontSize, true, badge.textColor, c);
  cairo_restore(cr);
}

std::string rulerLabel(const MarkupRulerLine& ruler) {
  double pixels = std::hypot(ruler.to.x - ruler.from.x, ruler.to.y - ruler.from.y);
  double dpi = ruler.dpi > 0 ? ruler.dpi : 72;
  char text[64];
  switch (ruler.unit) {
    case MarkupRulerLine::Unit::px:
      std::snprintf(text, sizeof text, "%.0f px", pixels);
      break;
    case MarkupRulerLine::Unit::inches:
      std::snprintf(text, sizeof text, "%.2f in", pixels / dpi);
      break;
    case MarkupRulerLine::Unit::centimeters:
      std::snprintf(text, sizeof text, "%.1f cm", pixels / dpi * 2.54);
      break;
    case MarkupRulerLine::Unit::millimeters:
      std::snprintf(text, sizeof text, "%.0f mm", pixels / dpi * 25.4);
      break;
  }
  return text;
}

void drawRuler(cairo_t* cr, const MarkupRulerLine& ruler) {
  Point d{ruler.to.x - ruler.from.x, ruler.to.y - ruler.from.y};
  double length = Length(d);
  if (length < 1) return;
  d = Normalized(d);
  Point n{-d.y, d.x};
  if (n.y > 0 || (n.y == 0 && n.x > 0)) n = {-n.x, -n.y};  // n points up: the label side
  const double width = std::max(ruler.strokeWidth, 0.5);
  const double fontSize = std::max(ruler.fontSize, 6.0);
  const double major = std::max(8.0, fontSize * 0.8);
  cairo_save(cr);
  setSourceColor(cr, ruler.color);
  cairo_set_line_width(cr, width);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_BUTT);
  auto tick = [&](double at, double size) {
    Point p{ruler.from.x + d.x * at, ruler.from.y + d.y * at};
    cairo_move_to(cr, p.x + n.x * size / 2, p.y + n.y * size / 2);
    cairo_line_to(cr, p.x - n.x * size / 2, p.y - n.y * size / 2);
  };
  cairo_move_to(cr, ruler.from.x, ruler.from.y);
  cairo_line_to(cr, ruler.to.x, ruler.to.y);
  tick(0, major * 1.4);
  tick(length, major * 1.4);
  cairo_stroke(cr);
  if (ruler.showTicks) {
    double dpi = ruler.dpi > 0 ? ruler.dpi : 72;
    double unitsPerPixel = 1;
    if (ruler.unit == MarkupRulerLine::Unit::inches) unitsPerPixel = 1 / dpi;
    if (ruler.unit == MarkupRulerLine::Unit::centimeters) unitsPerPixel = 2.54 / dpi;
    if (ruler.unit == MarkupRulerLine::Unit::millimeters) unitsPerPixel = 25.4 / dpi;
    // The smallest round step (1, 2 or 5 times a power of ten) at least 8 px apart.
    double step = std::pow(10, std::floor(std::log10(8 * unitsPerPixel)));
    for (double f : {1.0, 2.0, 5.0, 10.0}) {
      if (f * step / unitsPerPixel >= 8) {
        step *= f;
        break;
      }
    }
    double stepPixels = step / unitsPerPixel;
    cairo_set_line_width(cr, std::max(1.0, width * 0.6));
    int i = 1;
    for (double at = stepPixels; at < length - 0.5 && i < 10000; at += stepPixels, ++i) {
      tick(at, i % 5 == 0 ? major : major * 0.5);
    }
    cairo_stroke(cr);
  }
  // The length in a pill above the middle of the line.
  std::string label = rulerLabel(ruler);
  Layout layout(cr, "Sans", fontSize, true, false);
  pango_layout_set_text(layout.get(), label.c_str(), static_cast<int>(label.size()));
  Size text = layout.size();
  double pad = fontSize * 0.4;
  Size pill{text.width + 2 * pad, text.height + pad};
  double lift = major * 0.7 + pill.height / 2 + 2;
  Point mid{(ruler.from.x + ruler.to.x) / 2 + n.x * lift, (ruler.from.y + ruler.to.y) / 2 + n.y * lift};
  addRoundedRect(cr, Rect::make(mid.x - pill.width / 2, mid.y - pill.height / 2, pill.width, pill.height),
                 pill.height / 2);
  setSourceColor(cr, ruler.color);
  cairo_fill(cr);
  CodableColor ink = Luminance(ruler.color) > 0.6 ? CodableColor{0, 0, 0, 1} : CodableColor{1, 1, 1, 1};
  setSourceColor(cr, ink);
  cairo_move_to(cr, mid.x - text.width / 2, mid.y - text.height / 2);
  pango_cairo_show_layout(cr, layout.get());
  cairo_restore(cr);
}

std::optional<Rect> MarkupSignatureRenderer::captureReferenceBounds(
    const MarkupSignature& signature) {
  bool any = false;
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  for (const auto& stroke : signature.strokes) {
    for (const Point& p : stroke.points) {
      if (!any) {
        minX = maxX = p.x, minY = maxY = p.y, any = true;
      } else {
        minX = std::min(minX, p.x), maxX = std::max(maxX, p.x);
        minY = std::min(minY, p.y), maxY = std::max(maxY, p.y);
      }
    }
  }
  if (!any) return std::nullopt;
  return Rect::make(minX, minY, maxX - minX, maxY - minY);
}

MarkupSignatureRenderer::Path MarkupSignatureRenderer::makePath(const MarkupSignature& signature,
                                                                Size targetSize,
                                                                const Rect& bounds) {
  Path path;
  double bw = std::max(bounds.size.width, 1e-6), bh = std::max(bounds.size.height, 1e-6);
  double scale = std::min(targetSize.width / bw, targetSize.height / bh);
  if (bounds.size.width <= 0) scale = targetSize.height / bh;
  if (bounds.size.height <= 0) scale = targetSize.width / bw;
  if (!std::isfinite(scale) || scale <= 0) scale = 1;
  path.scale = scale;
  double dx = (targetSize.width - bounds.size.width * scale) / 2;
  double dy = (targetSize.height - bounds.size.height * scale) / 2;
  for (const auto& stroke : signature.strokes) {
    std::vector<Point> points;
    points.reserve(stroke.points.size());
    for (const Point& p : stroke.points) {
      points.push_back({dx + (p.x - bounds.minX()) * scale, dy + (p.y - bounds.minY()) * scale});
    }
    path.strokes.push_back(std::move(points));
    path.widths.push_back(stroke.width * scale);
  }
  return path;
}

void drawSignatureStamp(cairo_t* cr, const MarkupSignatureStamp& stamp,
                        const MarkupSignature& signature) {
  Rect frame = standardized(stamp.frame);
  auto bounds = MarkupSignatureRenderer::captureReferenceBounds(signature);
  if (!bounds || frame.size.width <= 0 || frame.size.height <= 0) return;
  auto path = MarkupSignatureRenderer::makePath(signature, frame.size, *bounds);
  cairo_save(cr);
  RotateAbout(cr, frame.center(), stamp.rotation);
  cairo_translate(cr, frame.minX(), frame.minY());
  setSourceColor(cr, stamp.tintColor);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  for (size_t i = 0; i < path.strokes.size(); ++i) {
    const auto& points = path.strokes[i];
    if (points.empty()) continue;
    addPolyline(cr, points);
    if (points.size() == 1) cairo_line_to(cr, points[0].x + 0.1, points[0].y + 0.1);
    cairo_set_line_width(cr, std::max(path.widths[i], 0.5));
    cairo_stroke(cr);
  }
  cairo_restore(cr);
}

void drawImageInFrame(cairo_t* cr, cairo_surface_t* image, const Rect& rawFrame, double rotation,
                      double opacity) {
  Rect frame = standardized(rawFrame);
  int iw = cairo_image_surface_get_width(image), ih = cairo_image_surface_get_height(image);
  if (iw < 1 || ih < 1 || frame.size.width <= 0 || frame.size.height <= 0) return;
  double scale = std::min(frame.size.width / iw, frame.size.height / ih);
  Point c = frame.center();
  cairo_save(cr);
  RotateAbout(cr, c, rotation);
  cairo_translate(cr, c.x - iw * scale / 2, c.y - ih * scale / 2);
  cairo_scale(cr, scale, scale);
  cairo_set_source_surface(cr, image, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  cairo_paint_with_alpha(cr, std::clamp(opacity, 0.0, 1.0));
  cairo_restore(cr);
}

}  // namespace klipora::markup
