// The rules through which a model's answer is taken.
#include "intelligence/foundation_model_answers.h"

#include <gtest/gtest.h>

namespace klipora::intelligence {
namespace {

TEST(FoundationModelAnswersTest, MapsCategoriesAndCustomAnswers) {
  bool known = false;
  EXPECT_EQ(mapModelCategory("Payments", &known), ScreenshotCategory::payments);
  EXPECT_TRUE(known);
  EXPECT_FALSE(mapModelCategory("uncategorized", &known));
  EXPECT_TRUE(known);
  EXPECT_FALSE(mapModelCategory("video", &known));
  EXPECT_FALSE(known);

  std::vector<CustomCategoryDescriptor> list = {
      {UUID::Random(), "A", "", {}}, {UUID::Random(), "B", "", {}}, {UUID::Random(), "C", "", {}}};
  bool mismatch = false;
  EXPECT_EQ(matchCustomAnswer(2, "C", list, &mismatch), 2u);
  EXPECT_TRUE(mismatch);
  EXPECT_EQ(matchCustomAnswer(2, "B", list, &mismatch), 1u);
  EXPECT_FALSE(mismatch);
  EXPECT_FALSE(matchCustomAnswer(0, "", list, &mismatch));
  EXPECT_FALSE(matchCustomAnswer(0, "B", list, &mismatch));
  EXPECT_FALSE(matchCustomAnswer(2, "", list, &mismatch));
  EXPECT_FALSE(matchCustomAnswer(4, "D", list, &mismatch));
  EXPECT_FALSE(matchCustomAnswer(-1, "D", list, &mismatch));
  EXPECT_EQ(matchCustomAnswer(9, "b", list, &mismatch), 1u);
  EXPECT_EQ(matchCustomAnswer(3, "Cee", list, &mismatch), 2u);
}

TEST(FoundationModelAnswersTest, FindsTheObjectAndReadsItsFields) {
  auto object = answerObject("Sure! ```json\n{\"category\": \"code\", \"n\": \" 2 \"}\n```");
  ASSERT_TRUE(object);
  EXPECT_EQ(stringField(*object, "category"), "code");
  EXPECT_EQ(integerField(*object, "n"), 2);
  EXPECT_FALSE(stringField(*object, "n2"));
  EXPECT_FALSE(answerObject("no object } here {"));
  EXPECT_FALSE(answerObject("{\"a\": }"));
  EXPECT_FALSE(answerObject("[1, 2]"));
  auto numbers = answerObject(R"({"a": 3.0, "b": 2.5, "c": "x1", "d": -4, "e": 1e300})");
  ASSERT_TRUE(numbers);
  EXPECT_EQ(integerField(*numbers, "a"), 3);
  EXPECT_FALSE(integerField(*numbers, "b"));
  EXPECT_FALSE(integerField(*numbers, "c"));
  EXPECT_EQ(integerField(*numbers, "d"), -4);
  EXPECT_FALSE(integerField(*numbers, "e"));
}

TEST(FoundationModelAnswersTest, KeywordTermsAreCleanSingleWords) {
  EXPECT_EQ(keywordTerms("Vehicle, dealer, car, Sedan., two words, 'coupe', vehicle,,", {"car"}),
            (std::vector<std::string>{"vehicle", "dealer", "sedan", "coupe"}));
  EXPECT_TRUE(keywordTerms("", {}).empty());
}

}  // namespace
}  // namespace klipora::intelligence
