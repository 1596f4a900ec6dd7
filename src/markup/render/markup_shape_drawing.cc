// Shapes and arrows.
#include <algorithm>
#include <cmath>

#include "markup/render/markup_arrow_geometry.h"
#include "markup/render/markup_layer_drawing.h"

namespace klipora::markup {
namespace {

using Style = MarkupShape::ArrowStyle;

Point Add(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
Point Sub(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
Point Scale(Point a, double s) { return {a.x * s, a.y * s}; }
Point Normal(Point d) { return {-d.y, d.x}; }

double PolylineLength(const std::vector<Point>& points) {
  double total = 0;
  for (size_t i = 1; i < points.size(); ++i) total += Length(Sub(points[i], points[i - 1]));
  return total;
}

void RotateAbout(cairo_t* cr, Point center, double rotation) {
  if (rotation == 0) return;
  cairo_translate(cr, center.x, center.y);
  cairo_rotate(cr, rotation);
  cairo_translate(cr, -center.x, -center.y);
}

void ApplyDashes(cairo_t* cr, const std::vector<double>& dashes) {
  cairo_set_dash(cr, dashes.empty() ? nullptr : dashes.data(), static_cast<int>(dashes.size()),
                 0);
}

// A filled head at `tip` pointing along `direction`, its back slightly
// notched so it reads as an arrow head rather than a triangle.
void FillHead(cairo_t* cr, Point tip, Point direction, double length, double halfWidth) {
  Point n = Normal(direction);
  Point base = Sub(tip, Scale(direction, length));
  Point notch = Sub(tip, Scale(direction, length * 0.82));
  cairo_move_to(cr, tip.x, tip.y);
  cairo_line_to(cr, base.x + n.x * halfWidth, base.y + n.y * halfWidth);
  cairo_line_to(cr, notch.x, notch.y);
  cairo_line_to(cr, base.x - n.x * halfWidth, base.y - n.y * halfWidth);
  cairo_close_path(cr);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  cairo_set_line_width(cr, std::max(1.0, halfWidth * 0.15));
  ApplyDashes(cr, {});
  cairo_fill_preserve(cr);
  cairo_stroke(cr);
}

// The outline of a straight arrow with a body of half width `body`.
std::vector<Point> ArrowOutline(Point from, Point to, double body, double headLength,
                                double headHalf) {
  Point d = Normalized(Sub(to, from)), n = Normal(d);
  Point base = Sub(to, Scale(d, headLength));
  auto at = [&](Point p, double side) { return Add(p, Scale(n, side)); };
  return {at(from, body), at(base, body), at(base, headHalf), to,
          at(base, -headHalf), at(base, -body), at(from, -body)};
}

void FillPolygon(cairo_t* cr, const std::vector<Point>& points) {
  addPolyline(cr, points);
  cairo_close_path(cr);
  cairo_fill(cr);
}

void DrawArrow(cairo_t* cr, const MarkupShape& shape) {
  auto resolved = MarkupArrowGeometry::resolve(shape);
  const double w = std::max(shape.strokeWidth, 1.0);
  const double total = PolylineLength(resolved.shaft);
  if (total < 0.5) return;
  const CodableColor& color = shape.strokeColor;
  switch (resolved.style) {
    case Style::tapered:
      drawTaperedArrow(cr, resolved.tail, resolved.tip, w, color);
      return;
    case Style::sketch:
      drawSketchArrow(cr, resolved.tail, resolved.tip, w, color,
                      MarkupArrowGeometry::sketchSeed(shape));
      return;
    case Style::outlined: {
      double head = std::min(MarkupArrowGeometry::headLength(w, Style::outlined) * 1.3, total * 0.6);
      auto outline = ArrowOutline(resolved.tail, resolved.tip, std::max(w * 0.9, 2.0), head,
                                  std::max(head * 0.6, w * 2));
      addPolyline(cr, outline);
      cairo_close_path(cr);
      if (shape.fillColor) {
        setSourceColor(cr, *shape.fillColor);
        cairo_fill_preserve(cr);
      }
      setSourceColor(cr, color);
      cairo_set_line_width(cr, std::max(1.5, w * 0.5));
      cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
      ApplyDashes(cr, dashLengths(shape.dashPattern, w * 0.5));
      cairo_stroke(cr);
      return;
    }
    default:
      break;
  }
  const bool doubled = resolved.style == Style::doubleHeaded;
  const double shaftWidth = resolved.style == Style::bold ? w * 1.8 : w;
  double head = MarkupArrowGeometry::headLength(w, resolved.style);
  head = std::min(head, total * (doubled ? 0.45 : 0.6));
  double halfWidth = std::max(head * 0.5, shaftWidth * 1.2);
  // The shaft stops inside the head, so its cap never shows past the point.
  auto shaft = MarkupArrowGeometry::truncatedLegacyShaft(resolved, head * 0.7);
  if (doubled) {
    std::reverse(shaft.begin(), shaft.end());
    MarkupArrowGeometry::Resolved reversed;
    reversed.shaft = shaft;
    shaft = MarkupArrowGeometry::truncatedLegacyShaft(reversed, head * 0.7);
    std::reverse(shaft.begin(), shaft.end());
  }
  auto dashes = dashLengths(shape.dashPattern, shaftWidth);
  setSourceColor(cr, color);
  cairo_set_line_width(cr, shaftWidth);
  cairo_set_line_cap(cr, dashes.empty() ? CAIRO_LINE_CAP_ROUND : CAIRO_LINE_CAP_BUTT);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  ApplyDashes(cr, dashes);
  addPolyline(cr, shaft);
  cairo_stroke(cr);
  FillHead(cr, resolved.tip, resolved.tipDirection, head, halfWidth);
  if (doubled) {
    FillHead(cr, resolved.tail, Scale(resolved.tailDirection, -1), head, halfWidth);
  }
}

}  // namespace

std::vector<double> dashLengths(std::optional<MarkupShape::DashPattern> pattern,
                                double strokeWidth) {
  double w = std::max(1.0, strokeWidth);
  if (!pattern) return {};
  if (*pattern == MarkupShape::DashPattern::dotted) return {w, 2 * w};
  return {4 * w, 3 * w};
}

void drawTaperedArrow(cairo_t* cr, Point from, Point to, double width, const CodableColor& color) {
  if (Length(Sub(to, from)) < 0.5) return;
  cairo_save(cr);
  setSourceColor(cr, color);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  FillPolygon(cr, MarkupArrowGeometry::taperedOutline(from, to, width));
  cairo_restore(cr);
}

void drawSketchArrow(cairo_t* cr, Point from, Point to, double width, const CodableColor& color,
                     uint64_t seed) {
  double length = Length(Sub(to, from));
  if (length < 0.5) return;
  cairo_save(cr);
  setSourceColor(cr, color);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  ApplyDashes(cr, {});
  // Two passes of one hand, as a marker drawn twice over the same line.
  cairo_set_line_width(cr, width);
  addPolyline(cr, MarkupArrowGeometry::sketchLine(from, to, width, seed));
  cairo_stroke(cr);
  cairo_set_line_width(cr, std::max(1.0, width * 0.6));
  addPolyline(cr, MarkupArrowGeometry::sketchLine(from, to, width, seed + 1));
  cairo_stroke(cr);
  // An open head of two strokes, each at about 28 degrees from the shaft.
  Point d = Normalized(Sub(to, from));
  double head = std::min(MarkupArrowGeometry::headLength(width, MarkupShape::ArrowStyle::sketch) *
                             1.2, length * 0.5);
  const double c = std::cos(0.49), s = std::sin(0.49);
  Point back = Scale(d, -1);
  Point left{back.x * c - back.y * s, back.x * s + back.y * c};
  Point right{back.x * c + back.y * s, -back.x * s + back.y * c};
  cairo_set_line_width(cr, width);
  addPolyline(cr, MarkupArrowGeometry::sketchLine(to, Add(to, Scale(left, head)), width, seed + 2));
  cairo_stroke(cr);
  addPolyline(cr,
              MarkupArrowGeometry::sketchLine(to, Add(to, Scale(right, head)), width, seed + 3));
  cairo_stroke(cr);
  cairo_restore(cr);
}

void drawShape(cairo_t* cr, const MarkupShape& shape) {
  const double w = std::max(shape.strokeWidth, 0.0);
  const Rect frame = standardized(shape.frame);
  cairo_save(cr);
  RotateAbout(cr, frame.center(), shape.rotation);
  setSourceColor(cr, shape.strokeColor);
  cairo_set_line_width(cr, w);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  auto dashes = dashLengths(shape.dashPattern, w);
  ApplyDashes(cr, dashes);
  if (shape.kind == MarkupShape::Kind::arrow) {
    DrawArrow(cr, shape);
    cairo_restore(cr);
    return;
  }
  if (shape.kind == MarkupShape::Kind::line) {
    cairo_set_line_cap(cr, dashes.empty() ? CAIRO_LINE_CAP_ROUND : CAIRO_LINE_CAP_BUTT);
    cairo_move_to(cr, shape.frame.origin.x, shape.frame.origin.y);
    cairo_line_to(cr, shape.frame.maxX(), shape.frame.maxY());
    if (w > 0) cairo_stroke(cr);
    cairo_restore(cr);
    return;
  }
  // Closed shapes keep their stroke inside the frame.
  double inset = std::min(w / 2, std::min(frame.size.width, frame.size.height) / 2);
  Rect inner = Rect::make(frame.minX() + inset, frame.minY() + inset,
                          frame.size.width - 2 * inset, frame.size.height - 2 * inset);
  switch (shape.kind) {
    case MarkupShape::Kind::rectangle:
      cairo_set_line_join(cr, CAIRO_LINE_JOIN_MITER);
      cairo_rectangle(cr, inner.minX(), inner.minY(), inner.size.width, inner.size.height);
      break;
    case MarkupShape::Kind::roundedRect:
      addRoundedRect(cr, inner, std::max(6.0, 3 * w));
      break;
    default:  // oval
      addEllipse(cr, inner);
      break;
  }
  if (shape.fillColor) {
    setSourceColor(cr, *shape.fillColor);
    cairo_fill_preserve(cr);
    setSourceColor(cr, shape.strokeColor);
  }
  if (w > 0) {
    cairo_stroke(cr);
  } else {
    cairo_new_path(cr);
  }
  cairo_restore(cr);
}

}  // namespace klipora::markup
