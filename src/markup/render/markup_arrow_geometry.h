// MarkupArrowGeometry: where an arrow shape's body and head lie, for drawing
// and for hit testing. An arrow runs from its frame's origin to the opposite
// corner (a negative width or height points it left or up); `elbow` and
// `curved` arrows bend at `arrowControl`, or at a default bend when it is
// absent. The sketch style's wobble comes from a small seeded generator, so
// equal seeds draw equal arrows. Pure functions, safe from any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "markup/markup_layers.h"

namespace klipora::markup {

class MarkupArrowGeometry {
 public:
  using Style = MarkupShape::ArrowStyle;

  struct Resolved {
    std::vector<Point> shaft;  // the body as a polyline, tail first, ending at the tip
    Point tail;
    Point tip;                 // the head's point
    Point tipDirection;        // unit direction of travel at the tip
    Point tailDirection;       // unit direction of travel at the tail
    Point control;             // the bend point (the midpoint for unbent styles)
    Style style = Style::straight;
    bool legacy = false;       // saved before arrow styles existed
  };

  static Resolved resolve(const MarkupShape& shape);
  // `count` evenly spaced points from `from` to `to`, both ends included
  // (one point: `from`; none for a count below 1).
  static std::vector<Point> interpolate(Point from, Point to, int count);
  // Points along the shaft no further than `density` pixels apart, for hit
  // testing; a density below 0.5 is taken as 0.5.
  static std::vector<Point> samplePoints(const Resolved& resolved, double density);
  // The shaft shortened at the tip by `chopLength` along its path, so a line
  // cap does not poke through the head; never shorter than one point.
  static std::vector<Point> truncatedLegacyShaft(const Resolved& resolved, double chopLength);
  // Length of the head along the shaft, for a stroke of `strokeWidth`.
  static double headLength(double strokeWidth, Style style);
  static double headHalfWidth(double strokeWidth, Style style);
  // The seed of a shape's sketch wobble, taken from its id.
  static uint64_t sketchSeed(const MarkupShape& shape);
  // The wobbling polyline of a hand-drawn line from `from` to `to`.
  static std::vector<Point> sketchLine(Point from, Point to, double width, uint64_t seed);
  // The closed outline of a tapered arrow, thin at the tail, full width
  // before the head, head included.
  static std::vector<Point> taperedOutline(Point from, Point to, double width);
};

// Geometry helpers shared by the drawing code.
double Length(Point v);
Point Normalized(Point v);  // (1, 0) for a zero vector

}  // namespace klipora::markup
