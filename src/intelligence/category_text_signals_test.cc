// The text signals take shortcuts (anchored expressions at candidate
// places, counting 16 bytes at a time); these tests hold them to the plain
// way of computing the same thing, over random texts full of edge cases.
#include "intelligence/category_text_signals.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "intelligence/category_expression.h"

namespace klipora::intelligence {
namespace {

std::string RandomText(std::mt19937& rng, size_t size) {
  static const std::vector<std::string> pieces = {
      "fooBar", "aB", "x_y", "_", "__a_b", "snake_case_x", "iPhone", "ABc", "3:07", "12:30",
      " pm",    "PM", " a.m.", "1:02 / 3:45", "/", ":", "\xd9\xa3:\xd9\xa0\xd9\xa7",  // Arabic-Indic "3:07"
      "\xc3\xa9", "\xff", "\x80", "  ", "\t", "\n", "\n  12 x", "(", "}", "0", "99:99",
      "let a = 1", "word", "Z"};
  std::string text;
  while (text.size() < size) {
    text += pieces[rng() % pieces.size()];
    if (rng() % 4 == 0) text += static_cast<char>(rng() % 128);
  }
  return text;
}

TextShape PlainShape(std::string_view text) {
  TextShape shape;
  bool lineStart = true;
  bool indented = false;
  int spaces = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    auto byte = static_cast<unsigned char>(text[i]);
    char c = text[i];
    if ((byte & 0xC0) != 0x80) {
      ++shape.characters;
      if (c != ' ' && c != '\t' && c != '\r' && c != '\n') ++shape.nonBlankCharacters;
    }
    if (std::string_view("()[]{}").find(c) != std::string_view::npos) ++shape.brackets;
    if (c == '/') shape.hasSlash = true;
    if (c == '_') shape.hasUnderscore = true;
    auto digitish = [](char d) { return (d >= '0' && d <= '9') || (d & 0x80); };
    if (c == ':' && i > 0 && i + 1 < text.size() && digitish(text[i - 1]) &&
        digitish(text[i + 1])) {
      shape.hasClockColon = true;
    }
    if (i > 0 && c >= 'A' && c <= 'Z' && text[i - 1] >= 'a' && text[i - 1] <= 'z') {
      shape.hasCaseHump = true;
    }
    if (c == '\n') {
      lineStart = true;
      indented = false;
      spaces = 0;
    } else if (lineStart && c == ' ') {
      indented = ++spaces >= 2 || indented;
    } else if (lineStart && c == '\t') {
      indented = true;
    } else if (lineStart && c != '\r') {
      if (indented) ++shape.indentedLines;
      if (c >= '0' && c <= '9') shape.hasDigitLineStart = true;
      lineStart = false;
    }
  }
  return shape;
}

TEST(TextSignalsTest, ShapeMatchesTheByteByByteCount) {
  std::mt19937 rng(11);
  for (int run = 0; run < 400; ++run) {
    std::string text = RandomText(rng, rng() % 3000);
    TextShape fast = measureText(text);
    TextShape plain = PlainShape(text);
    ASSERT_EQ(fast.characters, plain.characters) << text;
    EXPECT_EQ(fast.nonBlankCharacters, plain.nonBlankCharacters);
    EXPECT_EQ(fast.brackets, plain.brackets);
    EXPECT_EQ(fast.indentedLines, plain.indentedLines);
    EXPECT_EQ(fast.hasClockColon, plain.hasClockColon);
    EXPECT_EQ(fast.hasSlash, plain.hasSlash);
    EXPECT_EQ(fast.hasUnderscore, plain.hasUnderscore);
    EXPECT_EQ(fast.hasCaseHump, plain.hasCaseHump) << text;
    EXPECT_EQ(fast.hasDigitLineStart, plain.hasDigitLineStart);
  }
}

TEST(TextSignalsTest, AnchoredSearchesFindWhatAFullScanFinds) {
  CategoryExpression camel(R"(\b[a-z]+[A-Z][a-zA-Z]*\b)");
  CategoryExpression snake(R"(\b[a-z]+_[a-z]+\b)");
  CategoryExpression playback(R"(\b\d{1,2}:\d{2}\b(?!\s*[apAP]\.?[mM]))");
  CategoryExpression split(R"(\d{1,2}:\d{2}\s*/\s*\d{1,2}:\d{2})");
  std::mt19937 rng(5);
  for (int run = 0; run < 400; ++run) {
    std::string text = RandomText(rng, rng() % 400);
    TextShape shape = measureText(text);
    CodeStructure code = findCodeStructure(text, shape, true);
    ASSERT_EQ(code.camelIdentifiers, static_cast<int>(camel.count(text))) << text;
    ASSERT_EQ(code.snakeIdentifiers, static_cast<int>(snake.count(text))) << text;
    ASSERT_EQ(hasPlaybackPosition(text, shape), playback.search(text)) << text;
    ASSERT_EQ(hasPlaybackSplit(text, shape), split.search(text)) << text;
  }
  // Digits of other scripts are digits too.
  std::string arabic = "\xd9\xa3:\xd9\xa0\xd9\xa7";
  EXPECT_TRUE(hasPlaybackPosition(arabic, measureText(arabic)));
}

TEST(TextSignalsTest, ErrorContextsAndGutter) {
  EXPECT_EQ(findErrorContexts("Fatal : disk"), kErrorLabel);
  EXPECT_EQ(findErrorContexts("ERRNO=-2"), kErrorCode);
  EXPECT_EQ(findErrorContexts("HTTP 503 Service Unavailable"), kHttpStatus);
  EXPECT_EQ(findErrorContexts("HTTP 200 not found"), 0);
  EXPECT_EQ(findErrorContexts("at App.Main(App.java:31)"), kSourceLine);
  EXPECT_EQ(findErrorContexts("outline 4"), 0);
  EXPECT_EQ(findErrorContexts(""), 0);
  std::string gutter = "  7\n  8  foo\n\t9 bar\n10\n";
  EXPECT_EQ(findCodeStructure(gutter, measureText(gutter), false).gutterRun, 4);
  std::string list = "1. one\n2. two\n3. three\n";
  EXPECT_EQ(findCodeStructure(list, measureText(list), false).gutterRun, 0);
}

}  // namespace
}  // namespace klipora::intelligence
