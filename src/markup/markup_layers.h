// The layer records of a markup document: eleven drawable families and the
// watermark placement. Fields are in declaration order and their names are
// also the keys of the saved form. Every layer carries an `id` that never
// changes once the layer exists; tools give new layers UUID::Random().
//
// Units: frames, points and lengths are source-image pixels; every `rotation`
// is in radians, clockwise on screen (y points down), about the frame's centre.
// Plain values, safe to copy between threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "markup/markup_values.h"
#include "platform/uuid.h"

namespace klipora::markup {

struct MarkupShape {
  enum class Kind { rectangle, roundedRect, oval, line, arrow };
  enum class DashPattern { dashed, dotted };
  enum class ArrowStyle { straight, elbow, curved, bold, doubleHeaded, outlined, tapered, sketch };

  UUID id = UUID::Random();
  Kind kind = Kind::rectangle;
  Rect frame;
  CodableColor strokeColor;
  std::optional<CodableColor> fillColor;  // none = unfilled
  double strokeWidth = 3;
  std::optional<DashPattern> dashPattern;  // none = solid
  double rotation = 0;
  std::optional<ArrowStyle> arrowStyle;  // used when kind is arrow
  std::optional<Point> arrowControl;     // bend handle of elbow and curved arrows
  bool operator==(const MarkupShape&) const = default;
};

struct MarkupTextBox {
  enum class Alignment { left, center, right, justify };

  UUID id = UUID::Random();
  Rect frame;
  std::string text;
  std::string fontName;
  double fontSize = 24;
  CodableColor textColor;
  std::optional<CodableColor> backgroundColor;
  Alignment alignment = Alignment::left;
  double rotation = 0;
  bool isBold = false;
  bool isItalic = false;
  bool isUnderlined = false;
  bool operator==(const MarkupTextBox&) const = default;
};

struct MarkupInkStroke {
  enum class Kind { pen, marker, highlighter };

  UUID id = UUID::Random();
  Kind kind = Kind::pen;
  std::vector<Point> points;
  CodableColor color;
  double width = 3;
  bool operator==(const MarkupInkStroke&) const = default;
};

struct MarkupStepBadge {
  enum class Style { filled, outlined, squircle, minimal };

  UUID id = UUID::Random();
  int64_t number = 1;
  Rect frame;
  CodableColor fillColor;
  CodableColor textColor;
  Style style = Style::filled;
  bool operator==(const MarkupStepBadge&) const = default;
};

struct MarkupMagnifierRegion {
  enum class Shape { circle, rectangle };

  UUID id = UUID::Random();
  Shape shape = Shape::circle;
  Rect frame;          // where the enlarged view is drawn
  Point sourceCenter;  // the point of the image that is magnified
  double zoom = 2;
  double borderWidth = 0;
  CodableColor borderColor;
  bool operator==(const MarkupMagnifierRegion&) const = default;
};

struct MarkupSpotlightRegion {
  enum class Shape { rectangle, ellipse };

  UUID id = UUID::Random();
  Shape shape = Shape::rectangle;
  Rect frame;  // the lit area
  CodableColor dimColor;
  double dimOpacity = 0.5;  // 0..1
  double feather = 0;       // edge softness in pixels
  bool operator==(const MarkupSpotlightRegion&) const = default;
};

struct MarkupEffectRegion {
  enum class Kind { gaussianBlur, pixelate, blackBar };

  UUID id = UUID::Random();
  Kind kind = Kind::gaussianBlur;
  Rect frame;
  double intensity = 0.5;
  bool operator==(const MarkupEffectRegion&) const = default;
};

struct MarkupEmojiStamp {
  UUID id = UUID::Random();
  std::string emoji;  // one grapheme cluster in practice
  Rect frame;
  double rotation = 0;
  double opacity = 1;  // 0..1
  bool operator==(const MarkupEmojiStamp&) const = default;
};

struct MarkupRulerLine {
  enum class Unit { px, inches, centimeters, millimeters };

  UUID id = UUID::Random();
  Point from;
  Point to;
  Unit unit = Unit::px;
  double dpi = 72;  // pixels per inch used to convert
  CodableColor color;
  double strokeWidth = 2;
  double fontSize = 12;
  bool showTicks = true;
  bool operator==(const MarkupRulerLine&) const = default;
};

struct MarkupSignatureStamp {
  UUID id = UUID::Random();
  UUID signatureID;  // a saved signature
  Rect frame;
  double rotation = 0;
  CodableColor tintColor;
  bool operator==(const MarkupSignatureStamp&) const = default;
};

struct MarkupCutoutSticker {
  UUID id = UUID::Random();
  Rect frame;
  ImageBytes imageData;  // the lifted subject, with transparency
  double rotation = 0;
  double opacity = 1;
  bool operator==(const MarkupCutoutSticker&) const = default;
};

struct MarkupWatermarkPlacement {
  enum class Corner { topLeft, topRight, bottomLeft, bottomRight, center };

  UUID id = UUID::Random();
  UUID stampID;  // a saved watermark stamp
  Corner corner = Corner::bottomRight;
  Point insets;  // x and y distance from the corner
  double opacity = 1;
  double scale = 1;
  std::optional<Rect> customFrame;  // when set, overrides the corner placement
  bool locked = false;
  bool operator==(const MarkupWatermarkPlacement&) const = default;
};

}  // namespace klipora::markup
