// WordNetLexicon on Debian's wordnet-base files.
#include "platform/linux/wordnet_lexicon.h"

#include <gtest/gtest.h>

namespace klipora {
namespace {

TEST(WordNetLexiconTest, NounsAndAdjectivesInTheirBaseForms) {
  WordNetLexicon lexicon;
  ASSERT_TRUE(lexicon.isAvailable()) << "wordnet-base is not installed";
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("car"), "car");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("cars"), "car");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("listings"), "listing");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("dealers"), "dealer");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("boxes"), "box");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("children"), "child");  // noun.exc
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("glass"), "glass");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("red"), "red");
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("cheaper"), "cheap");  // adjective rule
  EXPECT_EQ(lexicon.nounOrAdjectiveBase("busier"), "busy");    // adj.exc
  EXPECT_FALSE(lexicon.nounOrAdjectiveBase("of"));
  EXPECT_FALSE(lexicon.nounOrAdjectiveBase("my"));
  EXPECT_FALSE(lexicon.nounOrAdjectiveBase("xqzzv"));
}

TEST(WordNetLexiconTest, MissingFilesMakeItUnavailable) {
  WordNetLexicon lexicon("/nonexistent/wordnet");
  EXPECT_FALSE(lexicon.isAvailable());
  EXPECT_FALSE(lexicon.nounOrAdjectiveBase("car"));
}

}  // namespace
}  // namespace klipora
