#include "markup/render/markup_arrow_geometry.h"

#include <algorithm>
#include <cmath>

namespace klipora::markup {
namespace {

using Style = MarkupArrowGeometry::Style;

Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
Point operator*(Point a, double s) { return {a.x * s, a.y * s}; }
Point Perpendicular(Point v) { return {-v.y, v.x}; }

// A quadratic Bézier through `handle` at its middle, sampled finely enough
// that its segments are a few pixels long.
std::vector<Point> CurveThrough(Point from, Point handle, Point to) {
  Point c = handle * 2 - (from + to) * 0.5;
  double approx = Length(c - from) + Length(to - c);
  int segments = std::clamp(static_cast<int>(approx / 4), 8, 128);
  std::vector<Point> points;
  points.reserve(segments + 1);
  for (int i = 0; i <= segments; ++i) {
    double t = static_cast<double>(i) / segments, u = 1 - t;
    points.push_back(from * (u * u) + c * (2 * u * t) + to * (t * t));
  }
  return points;
}

Point DirectionAtEnd(const std::vector<Point>& shaft) {
  for (size_t i = shaft.size() - 1; i > 0; --i) {
    Point d = shaft.back() - shaft[i - 1];
    if (Length(d) > 1e-6) return Normalized(d);
  }
  return {1, 0};
}

Point DirectionAtStart(const std::vector<Point>& shaft) {
  for (size_t i = 1; i < shaft.size(); ++i) {
    Point d = shaft[i] - shaft.front();
    if (Length(d) > 1e-6) return Normalized(d);
  }
  return {1, 0};
}

// splitmix64: small, fast and the same everywhere, so a seed always draws the
// same wobble.
struct SeededRandom {
  uint64_t state;
  double next() {  // in [-1, 1)
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    return static_cast<double>(z >> 11) / static_cast<double>(1ull << 52) - 1.0;
  }
};

}  // namespace

double Length(Point v) { return std::hypot(v.x, v.y); }

Point Normalized(Point v) {
  double length = Length(v);
  if (length < 1e-9) return {1, 0};
  return {v.x / length, v.y / length};
}

MarkupArrowGeometry::Resolved MarkupArrowGeometry::resolve(const MarkupShape& shape) {
  Resolved r;
  r.tail = shape.frame.origin;
  r.tip = {shape.frame.origin.x + shape.frame.size.width,
           shape.frame.origin.y + shape.frame.size.height};
  r.legacy = !shape.arrowStyle.has_value();
  r.style = shape.arrowStyle.value_or(Style::straight);
  Point mid = (r.tail + r.tip) * 0.5;
  switch (r.style) {
    case Style::elbow:
      r.control = shape.arrowControl.value_or(Point{r.tip.x, r.tail.y});
      r.shaft = {r.tail, r.control, r.tip};
      break;
    case Style::curved: {
      if (shape.arrowControl) {
        r.control = *shape.arrowControl;
      } else {
        // Bow to the left of travel by a fifth of the length.
        Point d = r.tip - r.tail;
        r.control = mid + Perpendicular(Normalized(d)) * (-0.2 * Length(d));
      }
      r.shaft = CurveThrough(r.tail, r.control, r.tip);
      break;
    }
    default:
      r.control = mid;
      r.shaft = {r.tail, r.tip};
      break;
  }
  r.tipDirection = DirectionAtEnd(r.shaft);
  r.tailDirection = DirectionAtStart(r.shaft);
  return r;
}

std::vector<Point> MarkupArrowGeometry::interpolate(Point from, Point to, int count) {
  std::vector<Point> points;
  if (count < 1) return points;
  if (count == 1) return {from};
  points.reserve(count);
  for (int i = 0; i < count; ++i) {
    double t = static_cast<double>(i) / (count - 1);
    points.push_back(from + (to - from) * t);
  }
  return points;
}

std::vector<Point> MarkupArrowGeometry::samplePoints(const Resolved& resolved, double density) {
  density = std::max(density, 0.5);
  std::vector<Point> points;
  if (resolved.shaft.empty()) return points;
  points.push_back(resolved.shaft.front());
  for (size_t i = 1; i < resolved.shaft.size(); ++i) {
    Point a = resolved.shaft[i - 1], b = resolved.shaft[i];
    int count = static_cast<int>(std::ceil(Length(b - a) / density)) + 1;
    auto segment = interpolate(a, b, std::max(count, 2));
    points.insert(points.end(), segment.begin() + 1, segment.end());
  }
  return points;
}

std::vector<Point> MarkupArrowGeometry::truncatedLegacyShaft(const Resolved& resolved,
                                                             double chopLength) {
  std::vector<Point> shaft = resolved.shaft;
  double left = std::max(chopLength, 0.0);
  while (shaft.size() >= 2 && left > 0) {
    Point a = shaft[shaft.size() - 2], b = shaft.back();
    double length = Length(b - a);
    if (length > left) {
      shaft.back() = b + Normalized(a - b) * left;
      return shaft;
    }
    left -= length;
    if (shaft.size() == 2) {
      shaft.back() = a;
      return shaft;
    }
    shaft.pop_back();
  }
  return shaft;
}

double MarkupArrowGeometry::headLength(double strokeWidth, Style style) {
  double w = std::max(strokeWidth, 1.0);
  double length = std::max(10.0, 3.5 * w + 6);
  return style == Style::bold ? length * 1.35 : length;
}

double MarkupArrowGeometry::headHalfWidth(double strokeWidth, Style style) {
  return headLength(strokeWidth, style) * 0.5;
}

uint64_t MarkupArrowGeometry::sketchSeed(const MarkupShape& shape) {
  uint64_t seed = 1469598103934665603ull;
  for (uint8_t byte : shape.id.bytes()) seed = (seed ^ byte) * 1099511628211ull;
  return seed;
}

std::vector<Point> MarkupArrowGeometry::sketchLine(Point from, Point to, double width,
                                                   uint64_t seed) {
  SeededRandom random{seed};
  double length = Length(to - from);
  Point normal = Perpendicular(Normalized(to - from));
  // A hand's line: a gentle bow and one slow wiggle, both smooth, both kept
  // small against the line's length and width.
  double bow = random.next() * std::min(length * 0.03, 4.0 + width);
  double wiggle = random.next() * std::min(length * 0.01, 1.5 + width * 0.25);
  double phase = random.next() * M_PI;
  // The ends overshoot or stop short a little, as a quick stroke does.
  double startShift = random.next() * std::min(length * 0.02, width);
  double endShift = random.next() * std::min(length * 0.02, width);
  Point d = Normalized(to - from);
  from = from + d * startShift;
  to = to + d * endShift;
  int count = std::clamp(static_cast<int>(length / 6), 8, 96);
  std::vector<Point> points;
  points.reserve(count + 1);
  for (int i = 0; i <= count; ++i) {
    double t = static_cast<double>(i) / count;
    double offset = bow * std::sin(M_PI * t) + wiggle * std::sin(2 * M_PI * t + phase);
    points.push_back(from + (to - from) * t + normal * offset);
  }
  return points;
}

std::vector<Point> MarkupArrowGeometry::taperedOutline(Point from, Point to, double width) {
  Point d = Normalized(to - from), n = Perpendicular(d);
  double w = std::max(width, 1.0);
  double head = std::min(headLength(w, Style::tapered) * 1.1, Length(to - from) * 0.6);
  double headHalf = head * 0.55;
  Point base = to - d * head;
  double tailHalf = w * 0.15, bodyHalf = w * 0.75;
  return {from + n * tailHalf, base + n * bodyHalf, base + n * headHalf, to,
          base - n * headHalf, base - n * bodyHalf, from - n * tailHalf};
}

}  // namespace klipora::markup
