// Words of a screen's text for the text analyses: maximal runs of letters
// and digits. Outside ASCII every character counts as a letter except the
// punctuation, symbol and space blocks that screens are full of (Latin-1
// signs, general punctuation, arrows and shapes, CJK punctuation, U+FFFD).
// Pure; safe from any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace klipora::intelligence {

// The words of valid UTF-8 text, in order, as views into it.
std::vector<std::string_view> splitWords(std::string_view text);

// `text` without white space (every Unicode space, line breaks) at either end.
std::string_view trimBlanks(std::string_view text);

// The number of characters (code points) of valid UTF-8 text.
size_t characterCount(std::string_view text);

// At most `limit` characters of single-spaced text: when longer, cut at the
// last word boundary that leaves room for a closing ellipsis (mid-word when
// the first word alone is too long), without trailing blanks or separators.
std::string capAtWordBoundary(std::string text, size_t limit);

}  // namespace klipora::intelligence
