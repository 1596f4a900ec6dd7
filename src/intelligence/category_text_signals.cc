#include "intelligence/category_text_signals.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "intelligence/category_expression.h"
#include "intelligence/category_keyword_matcher.h"

namespace klipora::intelligence {
namespace {

using A = CategoryExpression::Anchoring;

// Camel- and snake-case matches are whole words, the gutter a line's start,
// playback positions sit around a colon, and each error context begins at a
// trigger word: so these expressions run anchored where a byte scan (or the
// trigger automaton) finds a possible start. The results equal a full scan.
struct Expressions {
  CategoryExpression camel{R"(\b[a-z]+[A-Z][a-zA-Z]*\b)", A::anchored};
  CategoryExpression snake{R"(\b[a-z]+_[a-z]+\b)", A::anchored};
  CategoryExpression let{R"(\blet\s+[a-z_]\w*\s*[=:])"};
  // A number alone at the start of a line, before blanks or the line's end.
  CategoryExpression gutter{R"((?m)^[ \t]*[0-9]{1,4}(?=[ \t\r]|$))", A::anchored};
  CategoryExpression playback{R"(\b\d{1,2}:\d{2}\b(?!\s*[apAP]\.?[mM]))", A::anchored};
  CategoryExpression playbackSplit{R"(\d{1,2}:\d{2}\s*/\s*\d{1,2}:\d{2})", A::anchored};
  CategoryExpression errorLabel{R"((?i)(?:error|exception|fatal|panic)\s*:)", A::anchored};
  CategoryExpression errorCode{
      R"((?i)\b(?:error|errno|exit code|exit status|status code)\s*[:=#]?\s*-?\d+)", A::anchored};
  CategoryExpression httpStatus{
      R"((?i)(?<=\b[45]\d\d\s)(?:not found|forbidden|unauthorized|bad request|)"
      R"(internal server error|service unavailable|bad gateway|gateway timeout))",
      A::anchored};
  CategoryExpression sourceLine{R"((?i)\bline\s+\d+)", A::anchored};
  CategoryExpression sourceFileLine{R"((?i)\.(?:java|py|js|ts|swift|go|rs|c|cc|cpp|rb|kt|m):\d+)",
                                    A::anchored};
};

const Expressions& TheExpressions() {
  static const Expressions* expressions = new Expressions();
  return *expressions;
}

struct ErrorTrigger {
  std::string_view word;
  ErrorContext context;
  const CategoryExpression Expressions::*expression;
};

constexpr ErrorTrigger kErrorTriggers[] = {
    {"error", kErrorLabel, &Expressions::errorLabel},
    {"error", kErrorCode, &Expressions::errorCode},
    {"exception", kErrorLabel, &Expressions::errorLabel},
    {"fatal", kErrorLabel, &Expressions::errorLabel},
    {"panic", kErrorLabel, &Expressions::errorLabel},
    {"errno", kErrorCode, &Expressions::errorCode},
    {"exit code", kErrorCode, &Expressions::errorCode},
    {"exit status", kErrorCode, &Expressions::errorCode},
    {"status code", kErrorCode, &Expressions::errorCode},
    {"not found", kHttpStatus, &Expressions::httpStatus},
    {"forbidden", kHttpStatus, &Expressions::httpStatus},
    {"unauthorized", kHttpStatus, &Expressions::httpStatus},
    {"bad request", kHttpStatus, &Expressions::httpStatus},
    {"internal server error", kHttpStatus, &Expressions::httpStatus},
    {"service unavailable", kHttpStatus, &Expressions::httpStatus},
    {"bad gateway", kHttpStatus, &Expressions::httpStatus},
    {"gateway timeout", kHttpStatus, &Expressions::httpStatus},
    {"line", kSourceLine, &Expressions::sourceLine},
    {".java:", kSourceLine, &Expressions::sourceFileLine},
    {".py:", kSourceLine, &Expressions::sourceFileLine},
    {".js:", kSourceLine, &Expressions::sourceFileLine},
    {".ts:", kSourceLine, &Expressions::sourceFileLine},
    {".swift:", kSourceLine, &Expressions::sourceFileLine},
    {".go:", kSourceLine, &Expressions::sourceFileLine},
    {".rs:", kSourceLine, &Expressions::sourceFileLine},
    {".c:", kSourceLine, &Expressions::sourceFileLine},
    {".cc:", kSourceLine, &Expressions::sourceFileLine},
    {".cpp:", kSourceLine, &Expressions::sourceFileLine},
    {".rb:", kSourceLine, &Expressions::sourceFileLine},
    {".kt:", kSourceLine, &Expressions::sourceFileLine},
    {".m:", kSourceLine, &Expressions::sourceFileLine},
};

// Automaton keyword index -> the triggers that share that word.
struct TriggerAutomaton {
  std::vector<std::string_view> words;
  std::vector<std::vector<const ErrorTrigger*>> triggers;
  KeywordAutomaton automaton;
};

const TriggerAutomaton& TheTriggerAutomaton() {
  static const TriggerAutomaton* built = [] {
    std::vector<std::string_view> words;
    std::vector<std::vector<const ErrorTrigger*>> triggers;
    for (const ErrorTrigger& trigger : kErrorTriggers) {
      auto at = std::find(words.begin(), words.end(), trigger.word);
      if (at == words.end()) {
        words.push_back(trigger.word);
        triggers.emplace_back();
        at = words.end() - 1;
      }
      triggers[static_cast<size_t>(at - words.begin())].push_back(&trigger);
    }
    return new TriggerAutomaton{words, triggers, KeywordAutomaton(words)};
  }();
  return *built;
}

enum ByteClass : uint8_t {
  kLower = 1,
  kUpper = 2,  // kLower << 1, so that a lower-upper pair shows in one AND
  kDigit = 4,
  kBlank = 8,          // space, tab, CR, LF
  kContinuation = 16,  // 10xxxxxx: inside a UTF-8 sequence
  kNonAscii = 32,
  kBracket = 64,
};

constexpr std::array<uint8_t, 256> kByteClasses = [] {
  std::array<uint8_t, 256> classes{};
  for (int c = 'a'; c <= 'z'; ++c) classes[c] = kLower;
  for (int c = 'A'; c <= 'Z'; ++c) classes[c] = kUpper;
  for (int c = '0'; c <= '9'; ++c) classes[c] = kDigit;
  for (int c : {' ', '\t', '\r', '\n'}) classes[c] = kBlank;
  for (int c : {'(', ')', '[', ']', '{', '}'}) classes[c] = kBracket;
  for (int c = 0x80; c < 0x100; ++c) {
    classes[c] = kNonAscii | ((c & 0xC0) == 0x80 ? kContinuation : 0);
  }
  return classes;
}();

bool Lower(char c) { return c >= 'a' && c <= 'z'; }

// An ASCII digit, or a byte of a character that \d might take for one.
bool Digitish(char c) { return (kByteClasses[static_cast<uint8_t>(c)] & (kDigit | kNonAscii)) != 0; }

// The offset of the character that starts before `offset`.
size_t PreviousCharacter(std::string_view text, size_t offset) {
  size_t at = offset - 1;
  for (int guard = 0; at > 0 && guard < 3 &&
                      (kByteClasses[static_cast<uint8_t>(text[at])] & kContinuation);
       ++guard) {
    --at;
  }
  return at;
}

// Tries `expression` anchored at the one or two characters before each
// colon that has digits (or what may be digits) on both sides.
bool MatchAroundClockColons(std::string_view text, const CategoryExpression& expression) {
  for (size_t p = text.find(':', 1); p != std::string_view::npos; p = text.find(':', p + 1)) {
    if (p + 1 >= text.size() || !Digitish(text[p - 1]) || !Digitish(text[p + 1])) continue;
    size_t one = PreviousCharacter(text, p);
    if (expression.matchAt(text, one)) return true;
    if (one > 0 && expression.matchAt(text, PreviousCharacter(text, one))) return true;
  }
  return false;
}

// Counts matches of a whole-word expression, tried at the start of the
// lower-case run before each pivot byte; nextPivot(from) gives the first
// pivot at or after `from` (npos when none is left).
template <typename NextPivot>
int CountWordMatches(std::string_view text, const CategoryExpression& expression,
                     NextPivot nextPivot) {
  int count = 0;
  size_t cursor = 0;
  for (size_t i = nextPivot(1); i != std::string_view::npos && i < text.size();
       i = nextPivot(i + 1)) {
    size_t start = i;
    while (start > cursor && Lower(text[start - 1])) --start;
    if (start == i || start < cursor) continue;
    size_t end = 0;
    if (expression.matchAt(text, start, &end)) {
      ++count;
      cursor = end;
      i = std::max(i, end > 0 ? end - 1 : 0);
    }
  }
  return count;
}

// Sixteen byte lanes of counters (GCC/Clang vector extensions, which fall
// back to plain code where the processor has no vector unit).
struct Lanes {
  using V = uint8_t __attribute__((vector_size(16)));
  static constexpr size_t kWidth = 16;
  V continuations{}, blanks{}, brackets{}, humps{};

  static V Load(const char* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
  }
  static V Between(V v, uint8_t low, uint8_t high) {
    return (V)((V)(v - low) <= (uint8_t)(high - low));
  }

  // Counts the 16 bytes at p; p[-1] must be readable (it tells the humps).
  void add(const char* p) {
    V v = Load(p);
    V before = Load(p - 1);
    // Comparisons give 0xFF for true: subtracting adds one.
    continuations -= (V)((v & 0xC0) == 0x80);
    blanks -= (V)((v == ' ') | (v == '\t') | (v == '\r') | (v == '\n'));
    brackets -= (V)((v == '(') | (v == ')') | (v == '[') | (v == ']') | (v == '{') | (v == '}'));
    humps |= Between(v, 'A', 'Z') & Between(before, 'a', 'z');
  }

  void flush(size_t& c, size_t& b, size_t& r, bool& hump) {
    for (size_t k = 0; k < kWidth; ++k) {
      c += continuations[k];
      b += blanks[k];
      r += brackets[k];
      hump = hump || humps[k] != 0;
    }
    continuations = blanks = brackets = humps = V{};
  }
};

}  // namespace

TextShape measureText(std::string_view text) {
  TextShape shape;
  // The counts come from one pass over 16 bytes at a time (byte lanes that
  // count up to 255 and are emptied before they can wrap), the rest from
  // memchr-speed searches for the few bytes that matter one at a time.
  size_t continuations = 0;
  size_t blanks = 0;
  size_t brackets = 0;
  bool hump = false;
  const size_t size = text.size();
  const char* data = text.data();
  size_t i = 0;
  if (size > Lanes::kWidth) {
    Lanes lanes;
    int rounds = 0;
    // The first block has no byte before it; humps there are found below.
    for (i = 1; i + Lanes::kWidth <= size; i += Lanes::kWidth) {
      lanes.add(data + i);
      if (++rounds == 255) {
        lanes.flush(continuations, blanks, brackets, hump);
        rounds = 0;
      }
    }
    lanes.flush(continuations, blanks, brackets, hump);
  }
  uint8_t previous = i > 0 ? kByteClasses[static_cast<uint8_t>(data[i - 1])] : 0;
  for (size_t k = i == 0 ? 0 : i; k < size; ++k) {
    const uint8_t cls = kByteClasses[static_cast<uint8_t>(data[k])];
    continuations += (cls & kContinuation) != 0;
    blanks += (cls & kBlank) != 0;
    brackets += (cls & kBracket) != 0;
    hump = hump || ((cls & kUpper) && (previous & kLower));
    previous = cls;
  }
  if (i > 0) {  // the first byte, skipped by the block loop
    const uint8_t cls = kByteClasses[static_cast<uint8_t>(data[0])];
    continuations += (cls & kContinuation) != 0;
    blanks += (cls & kBlank) != 0;
    brackets += (cls & kBracket) != 0;
  }
  shape.characters = text.size() - continuations;
  shape.nonBlankCharacters = shape.characters - blanks;
  shape.brackets = static_cast<int>(std::min<size_t>(brackets, 1u << 30));
  shape.hasCaseHump = hump;
  shape.hasSlash = text.find('/') != std::string_view::npos;
  shape.hasUnderscore = text.find('_') != std::string_view::npos;
  for (size_t p = text.find(':', 1); p != std::string_view::npos && p + 1 < text.size();
       p = text.find(':', p + 1)) {
    if (Digitish(text[p - 1]) && Digitish(text[p + 1])) {
      shape.hasClockColon = true;
      break;
    }
  }
  for (size_t line = 0; line < text.size();) {
    size_t at = line;
    int spaces = 0;
    bool indented = false;
    for (; at < text.size(); ++at) {
      if (text[at] == ' ') {
        indented = ++spaces >= 2 || indented;
      } else if (text[at] == '\t') {
        indented = true;
      } else if (text[at] != '\r') {
        break;
      }
    }
    if (at < text.size() && text[at] != '\n') {
      if (indented) ++shape.indentedLines;
      if (text[at] >= '0' && text[at] <= '9') shape.hasDigitLineStart = true;
    }
    size_t end = text.find('\n', at);
    line = end == std::string_view::npos ? text.size() : end + 1;
  }
  return shape;
}

CodeStructure findCodeStructure(std::string_view text, const TextShape& shape, bool mayDeclare) {
  const Expressions& e = TheExpressions();
  CodeStructure code;
  if (shape.hasCaseHump) {
    code.camelIdentifiers = CountWordMatches(text, e.camel, [text](size_t from) {
      for (size_t i = from; i < text.size(); ++i) {
        if (text[i] >= 'A' && text[i] <= 'Z' && Lower(text[i - 1])) return i;
      }
      return std::string_view::npos;
    });
  }
  if (shape.hasUnderscore) {
    code.snakeIdentifiers =
        CountWordMatches(text, e.snake, [text](size_t from) { return text.find('_', from); });
  }
  if (mayDeclare) code.letDeclaration = e.let.search(text);
  if (shape.hasDigitLineStart) {
    long previous = -2;
    int run = 0;
    for (size_t line = 0; line < text.size();) {
      size_t next = text.find('\n', line);
      next = next == std::string_view::npos ? text.size() : next + 1;
      size_t digits = text.find_first_not_of(" \t", line);
      if (digits < next && text[digits] >= '0' && text[digits] <= '9' &&
          e.gutter.matchAt(text, line)) {
        long number = 0;
        for (size_t i = digits; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
          number = number * 10 + (text[i] - '0');
        }
        run = number == previous + 1 ? run + 1 : 1;
        previous = number;
        code.gutterRun = std::max(code.gutterRun, run);
      }
      line = next;
    }
  }
  return code;
}

bool bracketsSignal(const TextShape& shape) {
  return shape.brackets >= kMinBrackets &&
         static_cast<size_t>(shape.brackets) * 100 >=
             shape.nonBlankCharacters * static_cast<size_t>(kMinBracketPercent);
}

bool hasPlaybackPosition(std::string_view text, const TextShape& shape) {
  return shape.hasClockColon && MatchAroundClockColons(text, TheExpressions().playback);
}

bool hasPlaybackSplit(std::string_view text, const TextShape& shape) {
  return shape.hasClockColon && shape.hasSlash &&
         MatchAroundClockColons(text, TheExpressions().playbackSplit);
}

uint8_t findErrorContexts(std::string_view text) {
  constexpr uint8_t kAll = kErrorLabel | kErrorCode | kHttpStatus | kSourceLine;
  const Expressions& e = TheExpressions();
  const TriggerAutomaton& triggers = TheTriggerAutomaton();
  uint8_t found = 0;
  triggers.automaton.scan(text, [&](size_t word, size_t end) {
    size_t start = end - triggers.words[word].size();
    for (const ErrorTrigger* trigger : triggers.triggers[word]) {
      if ((found & trigger->context) == 0 && (e.*(trigger->expression)).matchAt(text, start)) {
        found |= trigger->context;
      }
    }
    return found != kAll;
  });
  return found;
}

bool allExpressionsCompile() {
  const Expressions& e = TheExpressions();
  for (const CategoryExpression* expression :
       {&e.camel, &e.snake, &e.let, &e.gutter, &e.playback, &e.playbackSplit, &e.errorLabel,
        &e.errorCode, &e.httpStatus, &e.sourceLine, &e.sourceFileLine}) {
    if (!expression->valid()) return false;
  }
  return true;
}

}  // namespace klipora::intelligence
