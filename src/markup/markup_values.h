// The plain values every markup layer is made of: points, sizes and rectangles
// in the source image's pixel space (origin top left, y downwards, one unit =
// one source pixel), sRGB colours, and the encoded image bytes that stickers
// and background removal carry. Plain values, safe to copy between threads.
#pragma once

#include <string>

namespace klipora::markup {

struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  Point origin;
  Size size;

  static Rect make(double x, double y, double width, double height) {
    return Rect{{x, y}, {width, height}};
  }
  double minX() const { return origin.x; }
  double minY() const { return origin.y; }
  double maxX() const { return origin.x + size.width; }
  double maxY() const { return origin.y + size.height; }
  Point center() const { return {origin.x + size.width / 2, origin.y + size.height / 2}; }
  Rect offsetBy(double dx, double dy) const { return Rect{{origin.x + dx, origin.y + dy}, size}; }
  bool operator==(const Rect&) const = default;
};

// An sRGB colour; each component is 0..1.
struct CodableColor {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  bool operator==(const CodableColor&) const = default;
};

// The bytes of an encoded image (PNG with transparency in practice). A type of
// its own so that the snapshot writes it as base64 rather than as text.
struct ImageBytes {
  std::string data;
  bool operator==(const ImageBytes&) const = default;
};

}  // namespace klipora::markup
