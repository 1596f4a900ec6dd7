#include "library/search_text.h"

#include <locale.h>
#include <wctype.h>

#include "library/list_encoding.h"
#include "library/screenshot_item.h"

namespace klipora::library {
namespace {

// The C.UTF-8 locale carries the full Unicode case tables whatever the
// user's own locale is, so lower-casing does not depend on $LANG.
locale_t CaseLocale() {
  static locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  return locale;
}

}  // namespace

size_t decodeUtf8(std::string_view s, size_t i, char32_t* out) {
  unsigned char c = static_cast<unsigned char>(s[i]);
  if (c < 0x80) {
    *out = c;
    return 1;
  }
  size_t n;
  char32_t cp;
  if ((c & 0xE0) == 0xC0) {
    n = 2;
    cp = c & 0x1F;
  } else if ((c & 0xF0) == 0xE0) {
    n = 3;
    cp = c & 0x0F;
  } else if ((c & 0xF8) == 0xF0) {
    n = 4;
    cp = c & 0x07;
  } else {
    return 0;
  }
  if (i + n > s.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    unsigned char cc = static_cast<unsigned char>(s[i + k]);
    if ((cc & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (cc & 0x3F);
  }
  static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  *out = cp;
  return n;
}

void appendUtf8(char32_t cp, std::string& out) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

std::string toUtf8(std::u32string_view characters) {
  std::string out;
  for (char32_t cp : characters) appendUtf8(cp, out);
  return out;
}

std::string validUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    char32_t cp;
    size_t n = decodeUtf8(text, i, &cp);
    if (n == 0) {
      out += "\xEF\xBF\xBD";
      ++i;
    } else {
      out.append(text.substr(i, n));
      i += n;
    }
  }
  return out;
}

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  locale_t locale = CaseLocale();
  for (size_t i = 0; i < text.size();) {
    char32_t cp;
    size_t n = decodeUtf8(text, i, &cp);
    if (n == 0) {  // callers pass valid UTF-8; keep a stray byte as it is
      out.push_back(text[i++]);
      continue;
    }
    i += n;
    if (cp < 0x80) {
      out.push_back(static_cast<char>(cp >= 'A' && cp <= 'Z' ? cp + 32 : cp));
    } else if (locale) {
      appendUtf8(static_cast<char32_t>(towlower_l(static_cast<wint_t>(cp), locale)), out);
    } else {
      appendUtf8(cp, out);
    }
  }
  return out;
}

std::string normalizedTagName(std::string_view name) {
  std::string t = trimmed(name);
  std::string collapsed;
  collapsed.reserve(t.size());
  for (char c : t) {
    if (c == ' ' && !collapsed.empty() && collapsed.back() == ' ') continue;
    collapsed.push_back(c);
  }
  return lowercased(collapsed);
}

bool tagListContains(std::string_view tagsRaw, std::string_view normalizedName) {
  if (tagsRaw.empty()) return false;
  for (const auto& tag : splitList(tagsRaw)) {
    if (normalizedTagName(tag) == normalizedName) return true;
  }
  return false;
}

}  // namespace klipora::library
