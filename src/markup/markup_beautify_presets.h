// MarkupBeautifyPresets: one-click looks that dress a screenshot in a window
// frame on a padded background. The document applies an Output as a single
// undo step (MarkupDocument::applyBeautify). Pure values.
#pragma once

#include <string_view>

#include "markup/markup_settings.h"

namespace klipora::markup {

struct MarkupBeautifyPresets {
  enum class Look { lightGradient, darkGradient, neutral, sunset };

  struct Output {
    MarkupChromeFrame chrome;
    MarkupBackgroundFrame background;
    bool operator==(const Output&) const = default;
  };

  static Output output(Look look);
  static std::string_view name(Look look);
};

}  // namespace klipora::markup
