// The structural signals that category resolution reads from recognised text
// beside its keywords: the shape of the text (measured in one pass), code
// structure (identifiers, declarations, indentation, brackets, a line-number
// gutter), playback positions of media players and the context of error
// messages. The regular expressions behind them are compiled once; every
// function here is safe from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace klipora::intelligence {

// Counted in one pass over the text's bytes.
struct TextShape {
  // Unicode scalar values; each byte of an invalid UTF-8 sequence counts as one.
  size_t characters = 0;
  size_t nonBlankCharacters = 0;
  int indentedLines = 0;  // lines opening with two blanks or a tab, then text
  int brackets = 0;       // ( ) [ ] { }
  bool hasClockColon = false;  // a ':' between two digits (or non-ASCII characters)
  bool hasSlash = false;
  bool hasUnderscore = false;
  bool hasCaseHump = false;        // an ASCII lower-case letter followed by an upper-case one
  bool hasDigitLineStart = false;  // some line opens (after blanks) with a digit
};
TextShape measureText(std::string_view text);

// Thresholds that turn counts into code signals.
inline constexpr int kMinIdentifiers = 3;      // camel-case plus snake-case identifiers
inline constexpr int kMinIndentedLines = 3;
inline constexpr int kMinBrackets = 6;         // and at least 2% of the non-blank characters
inline constexpr int kMinBracketPercent = 2;
inline constexpr int kMinGutterRun = 3;        // lines numbered n, n+1, n+2, …

struct CodeStructure {
  int camelIdentifiers = 0;
  int snakeIdentifiers = 0;
  bool letDeclaration = false;
  // The longest run of lines whose leading numbers count up by one.
  int gutterRun = 0;
};
// `mayDeclare`: the text holds "let" at all (found by the keyword pass), so
// the declaration expression is worth running.
CodeStructure findCodeStructure(std::string_view text, const TextShape& shape, bool mayDeclare);
bool bracketsSignal(const TextShape& shape);

// A clock time such as "3:07" not followed by am/pm.
bool hasPlaybackPosition(std::string_view text, const TextShape& shape);
// A current/total pair such as "1:02 / 3:45".
bool hasPlaybackSplit(std::string_view text, const TextShape& shape);

// Kinds of error context, each a bit of the mask findErrorContexts returns.
enum ErrorContext : uint8_t {
  kErrorLabel = 1,   // "Error:", "TypeError:", "FATAL:"
  kErrorCode = 2,    // "error 42", "errno 2", "exit code 1"
  kHttpStatus = 4,   // "404 Not Found", "500 Internal Server Error"
  kSourceLine = 8,   // "line 12", "main.py:12"
};
inline constexpr std::string_view kErrorContextNames[] = {"label", "code", "http_status",
                                                          "source_line"};
uint8_t findErrorContexts(std::string_view text);

// The expressions, for tests: every one must compile.
bool allExpressionsCompile();

}  // namespace klipora::intelligence
