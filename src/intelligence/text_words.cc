#include "intelligence/text_words.h"

#include <cstdint>
#include <string>

#include "library/screenshot_item.h"

namespace klipora::intelligence {
namespace {

size_t SequenceLength(unsigned char lead) {
  return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
}

bool IsWordCharacter(std::string_view text, size_t at, size_t length) {
  auto c = static_cast<unsigned char>(text[at]);
  if (length == 1) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  }
  uint32_t cp = c & (0x7F >> length);
  for (size_t k = 1; k < length; ++k) cp = (cp << 6) | (text[at + k] & 0x3F);
  bool symbol = cp <= 0xBF || cp == 0xD7 || cp == 0xF7 || (cp >= 0x2000 && cp <= 0x2BFF) ||
                (cp >= 0x3000 && cp <= 0x303F) || (cp >= 0xFE30 && cp <= 0xFE4F) || cp >= 0xFFF0;
  return !symbol;
}

}  // namespace

std::vector<std::string_view> splitWords(std::string_view text) {
  std::vector<std::string_view> words;
  size_t start = std::string_view::npos;
  size_t i = 0;
  while (i < text.size()) {
    size_t length = SequenceLength(static_cast<unsigned char>(text[i]));
    if (i + length > text.size()) length = text.size() - i;
    bool word = IsWordCharacter(text, i, length);
    if (word && start == std::string_view::npos) start = i;
    if (!word && start != std::string_view::npos) {
      words.push_back(text.substr(start, i - start));
      start = std::string_view::npos;
    }
    i += length;
  }
  if (start != std::string_view::npos) words.push_back(text.substr(start));
  return words;
}

size_t characterCount(std::string_view text) {
  size_t n = 0;
  for (unsigned char c : text) n += (c & 0xC0) != 0x80;
  return n;
}

std::string_view trimBlanks(std::string_view text) { return library::trimmedView(text); }

std::string capAtWordBoundary(std::string text, size_t limit) {
  if (characterCount(text) <= limit) return text;
  // Room for the ellipsis: at most limit - 1 characters of the text.
  size_t cut = 0;
  for (size_t n = 0; cut < text.size(); ++cut) {
    if ((static_cast<unsigned char>(text[cut]) & 0xC0) != 0x80 && n++ == limit - 1) break;
  }
  std::string_view head = std::string_view(text).substr(0, cut);
  if (text[cut] != ' ') {
    size_t blank = head.rfind(' ');
    if (blank != std::string_view::npos && blank > 0) head = head.substr(0, blank);
  }
  while (!head.empty() && std::string_view(" \t,;:-").find(head.back()) != std::string_view::npos) {
    head.remove_suffix(1);
  }
  return std::string(head) + "\u2026";
}

}  // namespace klipora::intelligence
