// The web addresses that tell what a browser screenshot shows: a fixed table
// of well-known sites, each mapped to a category, found in the recognised
// text. A domain followed by a path ("stackoverflow.com/questions/…") reads
// as the page's own address, as in the address bar: a strong match. A domain
// that only stands in the text is a weak one. Constant; safe from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "intelligence/category_evidence.h"

namespace klipora::intelligence {

struct BrowserDomain {
  std::string_view domain;  // lower-case
  ScreenshotCategory category;
};
std::span<const BrowserDomain> browserDomainTable();

enum class DomainMatch : uint8_t { none, weak, strong };

inline constexpr size_t kMaxBrowserDomains = 128;
// The strongest match of each table row in `text`, indexed like the table.
// A domain must stand as a whole name: "x.com" is not found in "fedex.com".
std::array<DomainMatch, kMaxBrowserDomains> matchBrowserDomains(std::string_view text);

inline constexpr double kStrongDomainWeight = 0.5;
inline constexpr double kWeakDomainWeight = 0.3;

}  // namespace klipora::intelligence
