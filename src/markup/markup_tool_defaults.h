// The starting values of the editor's drawing tools: the brush a new shape
// takes, the style a new text box takes, and the few fixed defaults of new
// effect and magnifier regions. Plain values.
#pragma once

#include <optional>
#include <string>

#include "markup/markup_layers.h"
#include "markup/markup_values.h"

namespace klipora::markup {

// The desktop's standard red in sRGB components (#FF3B30).
inline constexpr CodableColor kSystemRed{1.0, 59.0 / 255.0, 48.0 / 255.0, 1.0};

struct MarkupBrush {
  CodableColor strokeColor = kSystemRed;
  std::optional<CodableColor> fillColor;  // none = unfilled
  double strokeWidth = 3.0;
  std::optional<MarkupShape::DashPattern> dashPattern;  // none = solid
  bool operator==(const MarkupBrush&) const = default;
};

// The neutral sans-serif every Linux desktop has (fonts-dejavu-core), in the
// role Helvetica plays elsewhere.
inline constexpr char kDefaultTextFontName[] = "DejaVu Sans";
inline constexpr double kDefaultTextFontSize = 24;

struct MarkupTextStyleDefaults {
  std::string fontName = kDefaultTextFontName;
  double fontSize = kDefaultTextFontSize;
  bool isBold = false;
  bool isItalic = false;
  bool isUnderlined = false;
  MarkupTextBox::Alignment alignment = MarkupTextBox::Alignment::left;
  bool operator==(const MarkupTextStyleDefaults&) const = default;
};

inline constexpr double kNewEffectIntensity = 0.5;
inline constexpr double kNewMagnifierZoom = 2.0;

}  // namespace klipora::markup
