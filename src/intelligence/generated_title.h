// Stand-in until generated titles land: same interface.
#pragma once
#include <optional>
#include <string>
#include "library/screenshot_category.h"
#include "platform/date.h"
namespace klipora::intelligence {
std::string makeGeneratedTitle(const std::optional<std::string>& modelTitle,
                               library::ScreenshotCategory category, Date capturedOrImportedAt);
bool shouldFlagForReview(double confidence);
}  // namespace klipora::intelligence
