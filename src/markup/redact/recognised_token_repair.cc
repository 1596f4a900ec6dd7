#include "markup/redact/recognised_token_repair.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "markup/redact/markup_redaction_patterns.h"

namespace klipora::markup {
namespace {

using processing::OCRCharacterBox;
using processing::OCRLine;

// A blank at most this share of the line's height wide sits inside a token:
// between words the recogniser leaves at least the font's space, which is
// wider (measured on sans, serif and monospaced screen fonts of 14 and 15 px).
constexpr double kNarrowBlank = 1.0 / 3.0;

struct Edit {
  size_t begin = 0;  // bytes [begin, end) of the current text
  size_t end = 0;
  std::string replacement;
};

bool IsAsciiAlnum(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; }

bool IsTokenChar(char c) {
  return IsAsciiAlnum(c) || c == '_' || c == '-' || c == '.' || c == ':' || c == '@';
}

// Applies non-overlapping edits in ascending order; returns the offsets in
// the new text where an emptied edit was (used for the joins).
std::vector<size_t> Apply(RepairedLine& line, const std::vector<Edit>& edits) {
  RepairedLine out;
  std::vector<size_t> removedAt;
  size_t at = 0;
  for (const Edit& edit : edits) {
    for (; at < edit.begin; ++at) {
      out.text += line.text[at];
      out.origin.push_back(line.origin[at]);
    }
    for (size_t k = 0; k < edit.replacement.size(); ++k) {
      out.text += edit.replacement[k];
      out.origin.push_back(line.origin[std::min(edit.begin + k, edit.end - 1)]);
    }
    if (edit.replacement.empty()) removedAt.push_back(out.text.size());
    at = edit.end;
  }
  for (; at < line.text.size(); ++at) {
    out.text += line.text[at];
    out.origin.push_back(line.origin[at]);
  }
  line.text = std::move(out.text);
  line.origin = std::move(out.origin);
  return removedAt;
}

// The key formats' fixed prefixes as they are misread, each with the way the
// format writes it. Matched case-insensitively; `canonical` receives the
// match and returns its repair.
struct PrefixRepair {
  const char* expression;
  std::string (*canonical)(std::string_view read);
};

std::string LettersAndDigits(std::string_view read) {
  std::string out;
  for (char c : read) {
    if (IsAsciiAlnum(c)) out += c;
  }
  return out;
}

const std::vector<PrefixRepair>& PrefixRepairs() {
  static const std::vector<PrefixRepair> repairs = {
      // "sk live_…", "sk _live_…", "pk_test …": the underscores of Stripe-style keys.
      {R"(\b(?:sk|pk|rk)[ _]{1,2}(?:live|test)[ _]{1,2}(?=[A-Z0-9]))",
       [](std::string_view read) {
         std::string s = LettersAndDigits(read);
         return s.substr(0, 2) + "_" + s.substr(2) + "_";
       }},
      // "ghp MtE…": the underscore after a GitHub token's prefix.
      {R"(\bgh[pousr](?: _?|_ )(?=[A-Z0-9]{8}))",
       [](std::string_view read) { return std::string(read.substr(0, 3)) + "_"; }},
      // "Alza…": the capital I of a Google key read as an l, a 1 or a bar.
      {R"(\bA[l1|]za(?=[A-Z0-9_-]{8}))",
       [](std::string_view read) { return std::string(read.substr(0, 1)) + "Iza"; }},
      // "eyI…": the J that opens each encoded part of a web token.
      {R"((?:\b|(?<=\.))ey[l1|f}\])](?=[A-Z0-9_-]{4}))",
       [](std::string_view read) { return std::string(read.substr(0, 2)) + "J"; }},
      // "bfcO:4cf": an O among the hexadecimal groups of an IPv6 address.
      {R"(\b(?:[0-9A-FO]{1,4}:){2,7}[0-9A-FO]{1,4}\b)",
       [](std::string_view read) {
         std::string s(read);
         std::replace(s.begin(), s.end(), 'O', '0');
         std::replace(s.begin(), s.end(), 'o', '0');
         return s;
       }},
  };
  return repairs;
}

const std::vector<RedactionPattern>& CompiledPrefixRepairs() {
  static const std::vector<RedactionPattern> compiled = [] {
    std::vector<RedactionPattern> out;
    for (const PrefixRepair& repair : PrefixRepairs()) {
      out.emplace_back(MarkupAutoRedactor::Kind::apiKey, repair.expression);
    }
    return out;
  }();
  return compiled;
}

void RepairPrefixes(RepairedLine& line) {
  const auto& repairs = PrefixRepairs();
  const auto& compiled = CompiledPrefixRepairs();
  for (size_t r = 0; r < repairs.size(); ++r) {
    std::vector<Edit> edits;
    compiled[r].forEachMatch(line.text, [&](size_t begin, size_t end) {
      std::string fixed = repairs[r].canonical(std::string_view(line.text).substr(begin, end - begin));
      if (fixed != line.text.substr(begin, end - begin)) edits.push_back({begin, end, fixed});
    });
    if (!edits.empty()) Apply(line, edits);
  }
}

// Look-alike glyphs after a letter, digit or separator: brackets, braces
// and currency signs only before a letter or digit (a closing bracket after a
// word is a bracket), an exclamation mark or a registered sign also at a
// token's end.
void RepairGlyphs(RepairedLine& line) {
  struct LookAlike {
    std::string_view read;
    const char* meant;
    bool mayEndToken;
  };
  static constexpr LookAlike kLookAlikes[] = {
      {"]", "J", false},      {"}", "J", false},      {")", "J", false},
      {"{", "f", false},      {"\u00A3", "f", false}, {"\u00A5", "Y", false},
      {"\u00A2", "c", false}, {"!", "l", true},       {"\u00AE", "O", true}};
  std::vector<Edit> edits;
  const std::string& text = line.text;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '|') {
      edits.push_back({i, i + 1, "l"});  // a thin l, I or 1 read as a bar
      continue;
    }
    if (i == 0 || !IsTokenChar(text[i - 1])) continue;
    for (const LookAlike& look : kLookAlikes) {
      size_t end = i + look.read.size();
      if (end > text.size() || text.compare(i, look.read.size(), look.read) != 0) continue;
      bool atEnd = end == text.size() || text[end] == ' ';
      if ((end < text.size() && IsAsciiAlnum(text[end])) || (look.mayEndToken && atEnd)) {
        edits.push_back({i, end, look.meant});
        i = end - 1;
        break;
      }
    }
  }
  if (!edits.empty()) Apply(line, edits);
}

const OCRCharacterBox* BoxEndingAt(const OCRLine& line, size_t end) {
  for (const OCRCharacterBox& c : line.characterBoxes) {
    if (c.offset + c.length == end) return &c;
  }
  return nullptr;
}

const OCRCharacterBox* BoxStartingAt(const OCRLine& line, size_t begin) {
  for (const OCRCharacterBox& c : line.characterBoxes) {
    if (c.offset == begin) return &c;
  }
  return nullptr;
}

// The median height of the line's character boxes; 0 without boxes.
double MedianHeight(const OCRLine& line) {
  std::vector<double> heights;
  for (const OCRCharacterBox& c : line.characterBoxes) heights.push_back(c.box.height);
  if (heights.empty()) return 0;
  std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
  return heights[heights.size() / 2];
}

// Blanks inside tokens: between token characters and still blanks of the
// recognised text. Joined on evidence of the glyphs (a narrow gap, or the
// boxes the recogniser gives the pieces of a word it split: overlapping, or
// half again as tall as the line's) or, as a shape join, between two pieces
// that both look like parts of a key.
void JoinBlanksInTokens(RepairedLine& line, const OCRLine& recognised, Size image) {
  const double height = recognised.boundingBox.height * image.height;
  const double tallest = 1.5 * MedianHeight(recognised);
  std::vector<Edit> edits;
  std::vector<bool> byShape;
  const std::string_view text = line.text;
  for (size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] != ' ' || !IsTokenChar(text[i - 1]) || !IsTokenChar(text[i + 1])) continue;
    size_t at = line.origin[i];
    if (recognised.text[at] != ' ') continue;
    const OCRCharacterBox* before = BoxEndingAt(recognised, at);
    const OCRCharacterBox* after = BoxStartingAt(recognised, at + 1);
    if (before != nullptr && after != nullptr) {
      double gap = (after->box.x - before->box.maxX()) * image.width;
      if (gap <= kNarrowBlank * height || before->box.height > tallest ||
          after->box.height > tallest) {
        edits.push_back({i, i + 1, ""});
        byShape.push_back(false);
        continue;
      }
    }
    size_t pieceStart = text.rfind(' ', i - 1);
    pieceStart = pieceStart == std::string_view::npos ? 0 : pieceStart + 1;
    size_t pieceEnd = std::min(text.find(' ', i + 1), text.size());
    if (looksLikeTokenPiece(text.substr(pieceStart, i - pieceStart)) &&
        looksLikeTokenPiece(text.substr(i + 1, pieceEnd - i - 1))) {
      edits.push_back({i, i + 1, ""});
      byShape.push_back(true);
    }
  }
  if (edits.empty()) return;
  line.joins = Apply(line, edits);
  for (size_t k = 0; k < line.joins.size(); ++k) {
    if (byShape[k]) line.shapeJoins.push_back(line.joins[k]);
  }
}

// Whether `pattern` matches all of [begin, end) of `text`.
bool MatchesWhole(const RedactionPattern& pattern, std::string_view text, size_t begin,
                  size_t end) {
  bool whole = false;
  pattern.forEachMatch(text.substr(begin, end - begin),
                       [&](size_t b, size_t e) { whole = whole || (b == 0 && e == end - begin); });
  return whole;
}

bool PlainWord(std::string_view text) {
  return !text.empty() && !looksLikeTokenPiece(text) &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
}

}  // namespace

bool looksLikeTokenPiece(std::string_view piece) {
  if (piece.size() == 1) return piece[0] == '.' || piece[0] == '-' || piece[0] == '_';
  bool letter = false, digit = false, lowerThenUpper = false, innerSeparator = false;
  for (size_t i = 0; i < piece.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(piece[i]);
    if (std::isdigit(c)) digit = true;
    if (std::isalpha(c)) letter = true;
    if (std::isupper(c) && i > 0 && std::islower(static_cast<unsigned char>(piece[i - 1]))) {
      lowerThenUpper = true;
    }
    if ((c == '_' || c == '-' || c == '.' || c == ':') && i > 0 && i + 1 < piece.size() &&
        IsAsciiAlnum(piece[i - 1]) && IsAsciiAlnum(piece[i + 1])) {
      innerSeparator = true;
    }
  }
  return (letter && digit) || lowerThenUpper || innerSeparator;
}

std::pair<size_t, size_t> RepairedLine::originalRange(const std::string& recognised,
                                                      size_t begin, size_t end) const {
  if (begin >= end || end > origin.size()) return {0, 0};
  size_t from = origin[begin];
  size_t to = origin[end - 1] + 1;
  while (to < recognised.size() && (static_cast<unsigned char>(recognised[to]) & 0xC0) == 0x80) {
    ++to;
  }
  return {from, std::max(from, to)};
}

bool RepairedLine::joinsInside(size_t begin, size_t end) const {
  auto it = std::upper_bound(joins.begin(), joins.end(), begin);
  return it != joins.end() && *it < end;
}

bool RepairedLine::shapeJoinsInside(size_t begin, size_t end) const {
  auto it = std::upper_bound(shapeJoins.begin(), shapeJoins.end(), begin);
  return it != shapeJoins.end() && *it < end;
}

void RepairedLine::trimToNeededPieces(const RedactionPattern& pattern, size_t& begin,
                                      size_t& end) const {
  const std::string_view view = text;
  bool trimmed = true;
  while (trimmed && joinsInside(begin, end)) {
    trimmed = false;
    size_t first = *std::upper_bound(joins.begin(), joins.end(), begin);
    if (PlainWord(view.substr(begin, first - begin)) && MatchesWhole(pattern, view, first, end)) {
      begin = first;
      trimmed = true;
      continue;
    }
    size_t last = *(std::lower_bound(joins.begin(), joins.end(), end) - 1);
    if (PlainWord(view.substr(last, end - last)) && MatchesWhole(pattern, view, begin, last)) {
      end = last;
      trimmed = true;
    }
  }
}

std::vector<OCRLine> joinLinesOfOneRow(std::vector<OCRLine> lines, Size image) {
  std::vector<Rect> boxes;
  for (const OCRLine& line : lines) {
    const processing::OCRRect& r = line.boundingBox;
    boxes.push_back(Rect::make(r.x * image.width, (1 - r.maxY()) * image.height,
                               r.width * image.width, r.height * image.height));
  }
  // next[i]: the line that continues line i on its row, if any.
  const size_t none = lines.size();
  std::vector<size_t> next(lines.size(), none);
  std::vector<bool> continues(lines.size(), false);
  for (size_t i = 0; i < lines.size(); ++i) {
    for (size_t j = 0; j < lines.size(); ++j) {
      if (i == j || continues[j]) continue;
      const Rect &a = boxes[i], &b = boxes[j];
      double overlap = std::min(a.maxY(), b.maxY()) - std::max(a.minY(), b.minY());
      double gap = b.minX() - a.maxX();
      if (b.minX() > a.minX() && overlap >= std::min(a.size.height, b.size.height) / 2 &&
          gap >= -2 &&
          gap <= std::max(a.size.height, b.size.height)) {
        next[i] = j;
        continues[j] = true;
        break;
      }
    }
  }
  std::vector<OCRLine> joined;
  for (size_t head = 0; head < lines.size(); ++head) {
    if (continues[head]) continue;
    OCRLine line = std::move(lines[head]);
    for (size_t j = next[head], steps = 0; j != none && steps < lines.size();
         j = next[j], ++steps) {
      const size_t shift = line.text.size() + 1;
      line.text += " " + lines[j].text;
      line.confidence = std::min(line.confidence, lines[j].confidence);
      line.boundingBox = line.boundingBox.united(lines[j].boundingBox);
      for (processing::OCRCharacterBox c : lines[j].characterBoxes) {
        c.offset += shift;
        line.characterBoxes.push_back(c);
      }
    }
    joined.push_back(std::move(line));
  }
  return joined;
}

RepairedLine repairForMatching(const OCRLine& line, Size imageSize) {
  RepairedLine repaired;
  repaired.text = line.text;
  repaired.origin.resize(line.text.size());
  for (size_t i = 0; i < line.text.size(); ++i) repaired.origin[i] = i;
  RepairGlyphs(repaired);
  RepairPrefixes(repaired);
  JoinBlanksInTokens(repaired, line, imageSize);
  return repaired;
}

}  // namespace klipora::markup
