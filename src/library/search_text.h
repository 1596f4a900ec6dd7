// Text helpers shared by search and tags: making outside text valid UTF-8,
// lower-casing it the Unicode way, and the one normal form of a tag name.
// Pure functions; safe from any thread.
#pragma once

#include <string>
#include <string_view>

namespace klipora::library {

// Decodes the code point at byte `i`; returns its length in bytes, or 0 when
// the bytes there are not a valid, shortest-form UTF-8 sequence.
size_t decodeUtf8(std::string_view text, size_t i, char32_t* out);
// Appends the UTF-8 form of `cp`.
void appendUtf8(char32_t cp, std::string& out);
std::string toUtf8(std::u32string_view characters);

// The text with every invalid UTF-8 sequence replaced by U+FFFD, so that it
// can reach SQLite, JSON and the regular-expression engine safely.
std::string validUtf8(std::string_view text);

// Lower-cases every letter (Unicode simple case mapping). Requires valid UTF-8.
std::string lowercased(std::string_view text);

// Trims white space and line breaks at both ends, collapses every run of
// blanks (U+0020) inside to one blank, and lower-cases. Two tag names denote
// the same tag exactly when their normalised forms are equal.
std::string normalizedTagName(std::string_view name);

// True when `tagsRaw` (a U+001F-joined list of tag names) holds a tag whose
// normalised name is `normalizedName`.
bool tagListContains(std::string_view tagsRaw, std::string_view normalizedName);

}  // namespace klipora::library
