// The whole-image settings of a markup document: crop, rotation and flips,
// perspective, background frame, window chrome, canvas extension, colour
// adjustments and background removal. Each is optional in the document except
// the transform; an absent setting means its rendering step is skipped.
// Plain values, safe to copy between threads.
#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "markup/markup_values.h"

namespace klipora::markup {

struct MarkupCrop {
  Rect rect;  // the kept rectangle in source pixels
  bool operator==(const MarkupCrop&) const = default;
};

struct MarkupTransform {
  int64_t rotationQuarterTurns = 0;
  bool flipHorizontal = false;
  bool flipVertical = false;
  double straightenDegrees = 0;

  bool isIdentity() const {
    return rotationQuarterTurns == 0 && !flipHorizontal && !flipVertical && straightenDegrees == 0;
  }
  bool operator==(const MarkupTransform&) const = default;
};

// The source quadrilateral that is mapped onto the output rectangle.
struct MarkupPerspectiveTransform {
  Point topLeft;
  Point topRight;
  Point bottomLeft;
  Point bottomRight;
  bool operator==(const MarkupPerspectiveTransform&) const = default;
};

struct MarkupBackgroundFrame {
  struct Solid {
    CodableColor color;  // saved under the key "_0"
    bool operator==(const Solid&) const = default;
  };
  struct LinearGradient {
    CodableColor start;
    CodableColor end;
    double angleDegrees = 0;
    bool operator==(const LinearGradient&) const = default;
  };
  using Fill = std::variant<Solid, LinearGradient>;
  struct Shadow {
    CodableColor color;
    double radius = 0;
    double offsetX = 0;
    double offsetY = 0;
    double opacity = 0;
    bool operator==(const Shadow&) const = default;
  };

  double padding = 0;
  std::optional<double> paddingVertical;  // none: `padding` applies on all sides
  Fill fill;
  double cornerRadius = 0;
  std::optional<Shadow> shadow;
  bool operator==(const MarkupBackgroundFrame&) const = default;
};

// A drawn application-window frame around the image.
struct MarkupChromeFrame {
  enum class Variant { light, dark };

  Variant variant = Variant::light;
  std::string title;
  bool showSidebar = false;
  double sidebarWidth = 0;
  double titlebarHeight = 0;
  double cornerRadius = 0;
  bool operator==(const MarkupChromeFrame&) const = default;
};

struct MarkupCanvasExtension {
  struct Solid {
    CodableColor color;  // saved under the key "_0"
    bool operator==(const Solid&) const = default;
  };
  struct EdgeMirror {
    bool operator==(const EdgeMirror&) const = default;
  };
  struct EdgeRepeat {
    bool operator==(const EdgeRepeat&) const = default;
  };
  using Fill = std::variant<Solid, EdgeMirror, EdgeRepeat>;

  // Pixels added on each side.
  double top = 0;
  double right = 0;
  double bottom = 0;
  double left = 0;
  Fill fill;
  bool operator==(const MarkupCanvasExtension&) const = default;
};

struct MarkupColorAdjustments {
  enum class Preset { none, noir, mono, sepia, chrome, fade, instant, vivid };

  Preset preset = Preset::none;
  double brightness = 0;
  double contrast = 1;
  double saturation = 1;
  double sharpness = 0;
  bool inverted = false;

  // True when the adjustment changes nothing; the renderer and the preview
  // cache treat such an adjustment as absent.
  bool isIdentity() const {
    constexpr double kEpsilon = 0.0001;
    return preset == Preset::none && std::abs(brightness) < kEpsilon &&
           std::abs(contrast - 1) < kEpsilon && std::abs(saturation - 1) < kEpsilon &&
           sharpness < kEpsilon && !inverted;
  }
  bool operator==(const MarkupColorAdjustments&) const = default;
};

struct MarkupBackgroundRemoval {
  bool enabled = false;
  std::optional<ImageBytes> maskedImageData;  // the source with a transparent background
  bool operator==(const MarkupBackgroundRemoval&) const = default;
};

}  // namespace klipora::markup
