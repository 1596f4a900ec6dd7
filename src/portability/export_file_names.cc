#include "portability/export_file_names.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "library/search_text.h"

namespace klipora::portability {
namespace {

// Length of the UTF-8 sequence that `lead` starts (the text is valid).
size_t sequenceLength(unsigned char lead) {
  return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

bool isReservedDeviceName(std::string_view name) {
  // Windows refuses these as names, with or without an extension.
  std::string base(name.substr(0, name.find('.')));
  while (!base.empty() && base.back() == ' ') base.pop_back();
  std::transform(base.begin(), base.end(), base.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  static constexpr std::array<std::string_view, 4> kPlain = {"CON", "PRN", "AUX", "NUL"};
  if (std::find(kPlain.begin(), kPlain.end(), base) != kPlain.end()) return true;
  return base.size() == 4 && (base.starts_with("COM") || base.starts_with("LPT")) &&
         base[3] >= '1' && base[3] <= '9';
}

// Cuts `s` to at most `limit` bytes without splitting a character (the text
// is valid UTF-8 by then), then drops trailing blanks and dots.
std::string cut(std::string s, size_t limit) {
  if (s.size() > limit) {
    size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) --end;
    s.resize(end);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '.')) s.pop_back();
  return s;
}

}  // namespace

std::string safeNameComponent(std::string_view given, std::string_view fallback) {
  static constexpr std::string_view kReserved = "/\\:*?\"<>|";
  const std::string text = library::validUtf8(given);
  std::string out;
  out.reserve(text.size());
  auto blank = [&out] {
    if (!out.empty() && out.back() != ' ') out.push_back(' ');
  };
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    size_t length = std::min(sequenceLength(c), text.size() - i);
    if (length == 1 && (c < 0x20 || c == 0x7F || c == ' ' || kReserved.find(c) != kReserved.npos)) {
      blank();
    } else if (length == 2 && c == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      blank();  // C1 control characters
    } else {
      out.append(text, i, length);
    }
    i += length;
  }
  size_t start = out.find_first_not_of(". ");
  out = start == std::string::npos ? std::string() : out.substr(start);
  out = cut(std::move(out), kMaxNameBytes);
  if (out.empty()) return std::string(fallback);
  if (isReservedDeviceName(out)) return std::string(fallback) + " " + out;
  return out;
}

void UniqueNames::reserve(const std::string& name) {
  taken_.insert(library::lowercased(library::validUtf8(name)));
}

bool UniqueNames::isTaken(const std::string& name) const {
  return taken_.count(library::lowercased(library::validUtf8(name))) > 0;
}

std::string UniqueNames::claim(const std::string& stem, const std::string& extension) {
  const size_t room = kMaxNameBytes > extension.size() ? kMaxNameBytes - extension.size() : 1;
  std::string base = cut(stem, room);
  std::string name = base + extension;
  for (int n = 2; isTaken(name); ++n) {
    std::string suffix = " " + std::to_string(n);
    name = cut(base, room - suffix.size()) + suffix + extension;
  }
  reserve(name);
  return name;
}

}  // namespace klipora::portability
