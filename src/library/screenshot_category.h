// ScreenshotCategory: the fourteen built-in categories, in menu and sidebar
// order. Stored by raw value. Display names are localised; englishName() is
// the English form whatever the user's language.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "library/enum_table.h"

namespace klipora::library {

enum class ScreenshotCategory {
  code,
  documents,
  receipts,
  design,
  chats,
  errors,
  payments,
  travel,
  shopping,
  social,
  settings,
  media,
  articles,
  uncategorized,
};

inline constexpr std::array<ScreenshotCategory, 14> kAllScreenshotCategories = {
    ScreenshotCategory::code,     ScreenshotCategory::documents, ScreenshotCategory::receipts,
    ScreenshotCategory::design,   ScreenshotCategory::chats,     ScreenshotCategory::errors,
    ScreenshotCategory::payments, ScreenshotCategory::travel,    ScreenshotCategory::shopping,
    ScreenshotCategory::social,   ScreenshotCategory::settings,  ScreenshotCategory::media,
    ScreenshotCategory::articles, ScreenshotCategory::uncategorized};

template <>
struct EnumTraits<ScreenshotCategory> {
  static std::span<const EnumCase<ScreenshotCategory>> cases();
};

// An unknown stored category reads as uncategorized.
template <>
inline ScreenshotCategory unknownRawFallback<ScreenshotCategory>() {
  return ScreenshotCategory::uncategorized;
}

std::string displayName(ScreenshotCategory category);
std::string_view englishName(ScreenshotCategory category);
std::string_view symbolName(ScreenshotCategory category);

}  // namespace klipora::library
