// The case names of the markup enumerations, which are also their saved
// values. They plug into the library's raw-value tables, so rawValue(e) and
// fromRaw<E>(text) work for every markup enumeration.
#pragma once

#include <span>

#include "library/enum_table.h"
#include "markup/layer_ref.h"
#include "markup/markup_layers.h"
#include "markup/markup_settings.h"

namespace klipora::library {

#define KLIPORA_MARKUP_ENUM(Type, ...)                          \
  template <>                                                   \
  struct EnumTraits<Type> {                                     \
    using E = Type;                                             \
    static std::span<const EnumCase<Type>> cases() {            \
      static constexpr EnumCase<Type> kCases[] = {__VA_ARGS__}; \
      return kCases;                                            \
    }                                                           \
  };

#define KLIPORA_CASE(name) \
  EnumCase<E> { E::name, #name }

KLIPORA_MARKUP_ENUM(markup::MarkupShape::Kind, KLIPORA_CASE(rectangle), KLIPORA_CASE(roundedRect),
                    KLIPORA_CASE(oval), KLIPORA_CASE(line), KLIPORA_CASE(arrow))
KLIPORA_MARKUP_ENUM(markup::MarkupShape::DashPattern, KLIPORA_CASE(dashed), KLIPORA_CASE(dotted))
KLIPORA_MARKUP_ENUM(markup::MarkupShape::ArrowStyle, KLIPORA_CASE(straight), KLIPORA_CASE(elbow),
                    KLIPORA_CASE(curved), KLIPORA_CASE(bold), KLIPORA_CASE(doubleHeaded),
                    KLIPORA_CASE(outlined), KLIPORA_CASE(tapered), KLIPORA_CASE(sketch))
KLIPORA_MARKUP_ENUM(markup::MarkupTextBox::Alignment, KLIPORA_CASE(left), KLIPORA_CASE(center),
                    KLIPORA_CASE(right), KLIPORA_CASE(justify))
KLIPORA_MARKUP_ENUM(markup::MarkupInkStroke::Kind, KLIPORA_CASE(pen), KLIPORA_CASE(marker),
                    KLIPORA_CASE(highlighter))
KLIPORA_MARKUP_ENUM(markup::MarkupStepBadge::Style, KLIPORA_CASE(filled), KLIPORA_CASE(outlined),
                    KLIPORA_CASE(squircle), KLIPORA_CASE(minimal))
KLIPORA_MARKUP_ENUM(markup::MarkupMagnifierRegion::Shape, KLIPORA_CASE(circle),
                    KLIPORA_CASE(rectangle))
KLIPORA_MARKUP_ENUM(markup::MarkupSpotlightRegion::Shape, KLIPORA_CASE(rectangle),
                    KLIPORA_CASE(ellipse))
KLIPORA_MARKUP_ENUM(markup::MarkupEffectRegion::Kind, KLIPORA_CASE(gaussianBlur),
                    KLIPORA_CASE(pixelate), KLIPORA_CASE(blackBar))
KLIPORA_MARKUP_ENUM(markup::MarkupRulerLine::Unit, KLIPORA_CASE(px), KLIPORA_CASE(inches),
                    KLIPORA_CASE(centimeters), KLIPORA_CASE(millimeters))
KLIPORA_MARKUP_ENUM(markup::MarkupWatermarkPlacement::Corner, KLIPORA_CASE(topLeft),
                    KLIPORA_CASE(topRight), KLIPORA_CASE(bottomLeft), KLIPORA_CASE(bottomRight),
                    KLIPORA_CASE(center))
KLIPORA_MARKUP_ENUM(markup::MarkupChromeFrame::Variant, KLIPORA_CASE(light), KLIPORA_CASE(dark))
KLIPORA_MARKUP_ENUM(markup::MarkupColorAdjustments::Preset, KLIPORA_CASE(none), KLIPORA_CASE(noir),
                    KLIPORA_CASE(mono), KLIPORA_CASE(sepia), KLIPORA_CASE(chrome),
                    KLIPORA_CASE(fade), KLIPORA_CASE(instant), KLIPORA_CASE(vivid))
KLIPORA_MARKUP_ENUM(markup::LayerRef::Kind, KLIPORA_CASE(inkStroke), KLIPORA_CASE(shape),
                    KLIPORA_CASE(textBox), KLIPORA_CASE(effect), KLIPORA_CASE(signature),
                    KLIPORA_CASE(magnifier), KLIPORA_CASE(spotlight), KLIPORA_CASE(stepBadge),
                    KLIPORA_CASE(emojiStamp), KLIPORA_CASE(cutout), KLIPORA_CASE(ruler),
                    KLIPORA_CASE(watermark))

#undef KLIPORA_CASE
#undef KLIPORA_MARKUP_ENUM

}  // namespace klipora::library
