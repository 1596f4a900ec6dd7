#include "markup/markup_beautify_presets.h"

namespace klipora::markup {
namespace {

constexpr CodableColor Rgb(int r, int g, int b) { return {r / 255.0, g / 255.0, b / 255.0, 1}; }

MarkupBeautifyPresets::Output Make(MarkupChromeFrame::Variant variant,
                                   MarkupBackgroundFrame::Fill fill) {
  MarkupBeautifyPresets::Output out;
  out.chrome.variant = variant;
  out.chrome.titlebarHeight = 28;
  out.chrome.cornerRadius = 10;
  out.chrome.sidebarWidth = 180;
  out.background.padding = 64;
  out.background.cornerRadius = 12;
  out.background.fill = std::move(fill);
  out.background.shadow = MarkupBackgroundFrame::Shadow{{0, 0, 0, 1}, 24, 0, 12, 0.35};
  return out;
}

}  // namespace

MarkupBeautifyPresets::Output MarkupBeautifyPresets::output(Look look) {
  using Variant = MarkupChromeFrame::Variant;
  using Gradient = MarkupBackgroundFrame::LinearGradient;
  switch (look) {
    case Look::lightGradient:
      return Make(Variant::light, Gradient{Rgb(0xE0, 0xEA, 0xFC), Rgb(0xCF, 0xDE, 0xF3), 135});
    case Look::darkGradient:
      return Make(Variant::dark, Gradient{Rgb(0x23, 0x25, 0x26), Rgb(0x41, 0x43, 0x45), 135});
    case Look::neutral:
      return Make(Variant::light, MarkupBackgroundFrame::Solid{Rgb(0xEE, 0xEE, 0xEE)});
    case Look::sunset:
      return Make(Variant::light, Gradient{Rgb(0xFF, 0x7E, 0x5F), Rgb(0xFE, 0xB4, 0x7B), 45});
  }
  return Make(Variant::light, MarkupBackgroundFrame::Solid{Rgb(0xEE, 0xEE, 0xEE)});
}

std::string_view MarkupBeautifyPresets::name(Look look) {
  switch (look) {
    case Look::lightGradient:
      return "lightGradient";
    case Look::darkGradient:
      return "darkGradient";
    case Look::neutral:
      return "neutral";
    case Look::sunset:
      return "sunset";
  }
  return "";
}

}  // namespace klipora::markup
