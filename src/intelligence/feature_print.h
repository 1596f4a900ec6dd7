// Stand-in until the perceptual hash lands: same interface.
#pragma once
#include <map>
#include <optional>
#include <span>
#include "library/screenshot_category.h"
#include "library/sql_value.h"
#include "platform/pixel_image.h"
namespace klipora::intelligence {
using library::ScreenshotCategory;
std::optional<library::Bytes> makeFeaturePrint(const PixelImage& image);
int featurePrintDistance(const library::Bytes& a, const library::Bytes& b);
struct VisualReference {
  library::Bytes print;
  ScreenshotCategory category;
};
std::map<ScreenshotCategory, double> visualVotes(const library::Bytes& print,
                                                 std::span<const VisualReference> references);
}  // namespace klipora::intelligence
