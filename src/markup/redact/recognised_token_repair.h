// The text of a recognised line as the redaction patterns should see it.
//
// Screen text recognition reads tokens (keys, hashes, addresses) less well
// than words: it puts a blank inside a long run where two glyphs stand a
// little apart ("eyJhbGciOiJIUzI1 NiJ9"), drops the underscore of "sk_live_"
// or reads it as a blank, reads a capital I as an l ("Alza…") and takes a J
// for a bracket. repairForMatching undoes what is safe to undo, with each
// byte's origin in the recognised text, so that a match found in the repaired
// text still maps to the recognised characters and their boxes:
//  - a blank between two token characters is removed and remembered as a
//    join when it is narrower than a third of the line's height (a word
//    space is wider), when the glyph boxes beside it bear the marks of a word
//    the recogniser split (overlapping, or much taller than the line's), or,
//    as a shape join, when the pieces on both sides look like parts of a key
//    (looksLikeTokenPiece: words such as "iPhone14 MacBookPro2023" do too, so
//    a shape join is good enough only for the formats with a fixed shape);
//  - a bracket, brace or currency sign inside a token reads as the letter it
//    stands for (J, f, Y, c), a bar or an exclamation mark as an l;
//  - the fixed prefixes of the key formats read with a blank for an
//    underscore or an l for an I ("sk live_", "ghp M…", "Alza") are written
//    as the format has them, and an O among an IPv6 address's hexadecimal
//    groups as a 0.
//
// Pure functions of their arguments; safe on any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "markup/markup_values.h"
#include "processing/ocr_result.h"

namespace klipora::markup {

class RedactionPattern;

struct RepairedLine {
  std::string text;
  // origin[i]: the byte of the recognised text that byte i of `text` stands
  // for (a repaired character stands for the first byte of what it replaced).
  std::vector<size_t> origin;
  // Offsets in `text` where a blank was removed (the byte after it), ascending.
  std::vector<size_t> joins;
  // The joins made on the pieces' shape alone, ascending.
  std::vector<size_t> shapeJoins;

  // The recognised bytes that [begin, end) of `text` stands for, widened to
  // whole UTF-8 characters of `recognised`.
  std::pair<size_t, size_t> originalRange(const std::string& recognised, size_t begin,
                                          size_t end) const;
  // Whether some join (shape join) lies strictly inside [begin, end).
  bool joinsInside(size_t begin, size_t end) const;
  bool shapeJoinsInside(size_t begin, size_t end) const;
  // Narrows a match [begin, end) of `text` that a join extended by a word:
  // while the piece before its first join (or after its last) is a plain
  // word and the rest matches `pattern` on its own, that piece is a label
  // ("SECRET", "Key") glued to the token, not part of it.
  void trimToNeededPieces(const RedactionPattern& pattern, size_t& begin, size_t& end) const;
};

// Whether a piece of text between blanks looks like part of a key rather
// than a word: letters and digits mixed, a capital after a small letter, or a
// separator inside; a lone separator (the dot of a split web token) too.
bool looksLikeTokenPiece(std::string_view piece);

// Recognised lines that stand side by side on one row, at most a line's
// height apart, joined left to right into one (a blank between them): the
// recogniser now and then ends a line inside a token and starts another.
std::vector<processing::OCRLine> joinLinesOfOneRow(std::vector<processing::OCRLine> lines,
                                                   Size imageSize);

// `imageSize` in pixels: blanks are judged by their width in pixels against
// the line's height.
RepairedLine repairForMatching(const processing::OCRLine& line, Size imageSize);

}  // namespace klipora::markup
