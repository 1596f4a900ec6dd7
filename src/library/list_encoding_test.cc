#include "library/list_encoding.h"

#include <gtest/gtest.h>

namespace klipora::library {
namespace {

TEST(ListEncodingTest, StringListsJoinWithUnitSeparatorAndKeepPiecesAsTheyAre) {
  EXPECT_TRUE(splitList("").empty());
  EXPECT_EQ(joinList({"a"}), "a");
  EXPECT_EQ(joinList({"a", "b"}), std::string("a\x1f" "b"));
  EXPECT_EQ(joinList({"a", "b"}).size(), 3u);
  EXPECT_EQ(splitList(" a \x1f\x1f" "b"), (std::vector<std::string>{" a ", "", "b"}));
  EXPECT_EQ(splitList("\x1f"), (std::vector<std::string>{"", ""}));
}

TEST(ListEncodingTest, NumbersUseTheShortestRoundTripForm) {
  EXPECT_EQ(formatShortest(0.8f), "0.8");
  EXPECT_EQ(formatShortest(1.0f), "1.0");
  EXPECT_EQ(formatShortest(0.1001), "0.1001");
  EXPECT_EQ(formatShortest(1e-05), "1e-05");
  EXPECT_EQ(encodeFloatList({0.25f, 0.9f}), std::string("0.25\x1f" "0.9"));
  EXPECT_EQ(decodeFloatList(encodeFloatList({0.1f, 0.3333333f})),
            (std::vector<float>{0.1f, 0.3333333f}));
  double v;
  EXPECT_TRUE(parseNumber("0.5", &v));
  EXPECT_FALSE(parseNumber("0.5x", &v));
  EXPECT_FALSE(parseNumber(" 0.5", &v));
  EXPECT_FALSE(parseNumber("", &v));
}

TEST(ListEncodingTest, CandidateDecodingSkipsBadPieces) {
  EXPECT_EQ(decodeCandidates("code:0.8\x1f" "design\x1f" "errors:x"),
            (std::vector<CategoryScore>{{"code", 0.8}}));
  EXPECT_EQ(decodeCandidates("a:1:2\x1f:0.5\x1f" "chats:0.25"),
            (std::vector<CategoryScore>{{"", 0.5}, {"chats", 0.25}}));
  std::vector<CategoryScore> candidates = {{"receipts", 0.72}, {"payments", 1.0}};
  EXPECT_EQ(encodeCandidates(candidates), std::string("receipts:0.72\x1fpayments:1.0"));
  EXPECT_EQ(decodeCandidates(encodeCandidates(candidates)), candidates);
}

}  // namespace
}  // namespace klipora::library
