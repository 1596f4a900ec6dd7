// File and folder names for an export that a person browses and another
// program reads: safe on every common file system (no reserved characters or
// device names, no trailing dots or blanks, at most kMaxNameBytes bytes of
// UTF-8) and unique within their folder regardless of letter case.
//
// Thread rules: plain values; UniqueNames belongs to one thread.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace klipora::portability {

inline constexpr size_t kMaxNameBytes = 120;

// `text` made safe as one name component: characters that some file system
// reserves (/ \ : * ? " < > |) and control characters become blanks, runs of
// blanks collapse, leading dots and blanks and trailing dots and blanks go,
// invalid UTF-8 becomes U+FFFD, the result is cut at a character boundary. An
// empty result or a device name (CON, NUL, COM1…) becomes `fallback`-based.
std::string safeNameComponent(std::string_view text, std::string_view fallback = "Untitled");

// Hands out names unique within one folder, compared without regard to case
// (Unicode lower case), by appending " 2", " 3"… before the extension.
class UniqueNames {
 public:
  // Marks `name` as taken (an existing file, or a name kept from an earlier run).
  void reserve(const std::string& name);
  bool isTaken(const std::string& name) const;
  // `stem` + `extension` (with its dot, or empty), made unique and reserved.
  std::string claim(const std::string& stem, const std::string& extension);

 private:
  std::set<std::string> taken_;  // lower-cased
};

}  // namespace klipora::portability
