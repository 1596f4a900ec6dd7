// The application tables of category resolution. The front application at
// capture is known by an id: a bundle identifier of the other desktop system
// (matched exactly against its table of 140 rows) or a Linux application id,
// a desktop-file id or WM_CLASS value (matched ignoring ASCII case, with a
// trailing ".desktop" dropped). Browsers are listed apart: their screenshots
// are judged by the web addresses in them. When the id says nothing, the
// application's name may still hold a hint. Constant tables built once; safe
// to read from any thread.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "intelligence/category_evidence.h"
#include "intelligence/category_keywords.h"

namespace klipora::intelligence {

struct AppCategory {
  std::string_view id;
  ScreenshotCategory category;
};

// Bundle identifier -> category, 140 rows, exact match.
std::span<const AppCategory> bundleIdentifierTable();
std::span<const std::string_view> browserBundleIdentifiers();
// Linux application id -> category (lower-case ids).
std::span<const AppCategory> linuxApplicationTable();
std::span<const std::string_view> linuxBrowserIds();
// Substring of the lower-cased application name -> category.
std::span<const CategoryKey> applicationNameHints();

struct ApplicationMatch {
  std::optional<ScreenshotCategory> category;  // from either id table
  bool browser = false;
};
// Looks `id` up in the bundle-identifier tables, then in the Linux tables.
ApplicationMatch lookUpApplication(std::string_view id);
// The first hint (in table order) that the name contains, ignoring ASCII case.
const CategoryKey* applicationNameHint(std::string_view appName);

}  // namespace klipora::intelligence
