#include "library/search_token_parser.h"

#include <gtest/gtest.h>

namespace klipora::library {
namespace {

using DateToken = ParsedSearchQuery::DateToken;

TEST(SearchTokenParserTest, SplitsTokensFromFreeText) {
  auto q = SearchTokenParser::parse("invoice tag:Work");
  EXPECT_EQ(q.freeText, "invoice");
  EXPECT_EQ(q.tags, std::vector<std::string>{"work"});

  q = SearchTokenParser::parse("a cat:Receipts b tag: blue c");
  EXPECT_EQ(q.categories, std::vector<std::string>{"receipts"});
  EXPECT_EQ(q.tags, std::vector<std::string>{"blue"});
  EXPECT_EQ(q.freeText, "a b c");  // the blanks left by removal collapse

  // Keys match in any case; a key inside a word is no token.
  q = SearchTokenParser::parse("Tag:Über TAG:x xtag:y");
  EXPECT_EQ(q.tags, (std::vector<std::string>{"über", "x"}));
  EXPECT_EQ(q.freeText, "xtag:y");
}

TEST(SearchTokenParserTest, FavouriteAndDateTokens) {
  EXPECT_EQ(SearchTokenParser::parse("fav:yes").favorite, true);
  EXPECT_EQ(SearchTokenParser::parse("fav:1").favorite, true);
  EXPECT_EQ(SearchTokenParser::parse("fav:TRUE").favorite, true);
  EXPECT_EQ(SearchTokenParser::parse("fav:no").favorite, false);
  EXPECT_EQ(SearchTokenParser::parse("nothing").favorite, std::nullopt);
  EXPECT_EQ(SearchTokenParser::parse("fav:yes fav:no").favorite, false);  // last wins

  EXPECT_EQ(SearchTokenParser::parse("date:week").date, DateToken::week);
  auto q = SearchTokenParser::parse("date:quarter hello");
  EXPECT_EQ(q.date, std::nullopt);
  EXPECT_EQ(q.freeText, "hello");
}

TEST(SearchTokenParserTest, OddInputNeverFails) {
  EXPECT_EQ(SearchTokenParser::parse("  \n plain  text \t").freeText, "plain text");
  EXPECT_TRUE(SearchTokenParser::parse("tag:").tags.empty());  // no value: not a token
  EXPECT_EQ(SearchTokenParser::parse("tag:").freeText, "tag:");
  // Each pair of blanks becomes one, once.
  EXPECT_EQ(SearchTokenParser::parse("a    b").freeText, "a  b");
  auto bad = SearchTokenParser::parse("caf\xC3 tag:\xFF\xFE");
  EXPECT_EQ(bad.freeText, "caf\xEF\xBF\xBD");
  EXPECT_EQ(bad.tags, std::vector<std::string>{"\xEF\xBF\xBD\xEF\xBF\xBD"});
  std::string huge(100'000, 'x');
  EXPECT_EQ(SearchTokenParser::parse(huge + " tag:a").freeText, huge);
}

}  // namespace
}  // namespace klipora::library
