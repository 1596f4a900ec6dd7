// The summary rule of text enrichment.
#include <string>
#include <unordered_set>
#include <vector>

#include "intelligence/text_enrichment.h"
#include "intelligence/text_words.h"

namespace klipora::intelligence {
namespace {

constexpr size_t kMinSummaryCharacters = 20;
constexpr size_t kMinSummaryWords = 4;
constexpr double kMinLetterShare = 0.65;
constexpr int kMinProseFunctionWords = 2;

std::string_view Trim(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r\f\v";
  size_t from = line.find_first_not_of(kBlanks);
  if (from == std::string_view::npos) return {};
  return line.substr(from, line.find_last_not_of(kBlanks) - from + 1);
}

// Letters over all characters that are not blanks.
double LetterShare(std::string_view line, size_t* words) {
  size_t letters = 0, visible = 0;
  *words = 0;
  for (std::string_view word : splitWords(line)) {
    size_t digits = 0;
    for (char c : word) digits += c >= '0' && c <= '9';
    size_t length = characterCount(word);
    letters += length - digits;
    if (length >= 2 && digits == 0) ++*words;
  }
  for (unsigned char c : line) visible += (c & 0xC0) != 0x80 && c != ' ' && c != '\t';
  return visible == 0 ? 0 : double(letters) / double(visible);
}

// Enough words of two or more letters, mostly letters: not a menu of icons,
// a row of numbers or a stray button label.
bool IsMeaningful(std::string_view line) {
  size_t words = 0;
  return characterCount(line) >= kMinSummaryCharacters &&
         LetterShare(line, &words) >= kMinLetterShare && words >= kMinSummaryWords;
}

bool EndsSentence(std::string_view text) {
  return text.ends_with('.') || text.ends_with('!') || text.ends_with('?') ||
         text.ends_with("\u2026") || text.ends_with("\u3002");
}

// Prose has function words; headers, addresses, menus and button rows
// rarely have two.
bool IsProse(std::string_view line) {
  static const std::unordered_set<std::string> kFunctionWords = {
      "a",      "about", "after", "an",   "and",  "are",  "as",   "at",   "be",
      "before", "but",   "by",    "can",  "for",  "from", "has",  "have", "he",
      "i",      "if",    "in",    "into", "is",   "it",   "my",   "not",  "of",
      "on",     "or",    "our",   "she",  "so",   "than", "that", "the",  "they",
      "this",   "to",    "was",   "we",   "were", "will", "with", "you",  "your"};
  int found = 0;
  for (std::string_view word : splitWords(line)) {
    if (word.size() > 6) continue;
    std::string lower(word);
    for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    found += kFunctionWords.contains(lower);
  }
  return found >= kMinProseFunctionWords;
}

// A line that carries on the sentence before it: starts with a lower-case
// letter and is mostly letters.
bool ContinuesSentence(std::string_view line) {
  size_t words = 0;
  return !line.empty() && line[0] >= 'a' && line[0] <= 'z' &&
         LetterShare(line, &words) >= kMinLetterShare;
}

// The end of the first sentence that is long enough to stand alone.
size_t FirstSentenceEnd(std::string_view text) {
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    char c = text[i];
    if ((c == '.' || c == '!' || c == '?') && text[i + 1] == ' ' &&
        characterCount(text.substr(0, i + 1)) >= kMinSummaryCharacters) {
      return i + 1;
    }
  }
  return text.size();
}

}  // namespace

std::optional<std::string> summarize(std::string_view text) {
  std::vector<std::string_view> lines;
  for (size_t from = 0; from <= text.size();) {
    size_t end = text.find('\n', from);
    if (end == std::string_view::npos) end = text.size();
    lines.push_back(Trim(text.substr(from, end - from)));
    from = end + 1;
  }
  // The first line of prose, else the first meaningful line.
  size_t chosen = lines.size();
  for (size_t i = 0; i < lines.size(); ++i) {
    if (!IsMeaningful(lines[i])) continue;
    if (chosen == lines.size()) chosen = i;
    if (IsProse(lines[i])) {
      chosen = i;
      break;
    }
  }
  if (chosen == lines.size()) return std::nullopt;
  std::string paragraph(lines[chosen]);
  for (size_t next = chosen + 1;
       next < lines.size() && !EndsSentence(paragraph) &&
       characterCount(paragraph) < kMaxSummaryLength && ContinuesSentence(lines[next]);
       ++next) {
    paragraph += ' ';
    paragraph += lines[next];
  }
  std::string collapsed;
  for (char c : paragraph.substr(0, FirstSentenceEnd(paragraph))) {
    if (c == '\t') c = ' ';
    if (c != ' ' || (!collapsed.empty() && collapsed.back() != ' ')) collapsed += c;
  }
  return capAtWordBoundary(std::move(collapsed), kMaxSummaryLength);
}

}  // namespace klipora::intelligence
