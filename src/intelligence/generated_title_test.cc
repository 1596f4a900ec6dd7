#include "intelligence/generated_title.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "platform/testing/scoped_time_zone.h"

namespace klipora::intelligence {
namespace {

using C = library::ScreenshotCategory;

class GeneratedTitleTest : public ::testing::Test {
 protected:
  testing::ScopedTimeZone zone_{"Europe/Berlin"};
};

TEST_F(GeneratedTitleTest, ModelTitlesAreCleaned) {
  const Date date = *parseISO8601("2026-11-24T10:00:00Z");
  EXPECT_EQ(makeGeneratedTitle("  \"Flight   to\n Lisbon.\"  ", C::travel, date),
            "Flight to Lisbon");
  EXPECT_EQ(
      makeGeneratedTitle("Title: \xE2\x80\x9CQ3 budget review\xE2\x80\x9D", C::documents, date),
      "Q3 budget review");
  EXPECT_EQ(makeGeneratedTitle("Loading...", C::media, date), "Loading...");

  std::string longTitle;
  for (int i = 0; i < 20; ++i) longTitle += "Chapter" + std::to_string(i) + ", ";
  std::string capped = makeGeneratedTitle(longTitle, C::articles, date);
  EXPECT_TRUE(capped.ends_with("Chapter7\xE2\x80\xA6")) << capped;
  EXPECT_EQ(cleanModelTitle(std::string(100, 'x')), std::string(79, 'x') + "\xE2\x80\xA6");
}

TEST_F(GeneratedTitleTest, WithoutAModelTitleTheCategoryAndLocalDay) {
  // 23:30 UTC is already the next day in Berlin.
  const Date lateEvening = *parseISO8601("2026-11-23T23:30:00Z");
  const std::string expected = library::displayName(C::receipts) + " \xC2\xB7 24 Nov 2026";
  EXPECT_EQ(makeGeneratedTitle(std::nullopt, C::receipts, lateEvening), expected);
  EXPECT_EQ(makeGeneratedTitle(" \"\" . ", C::receipts, lateEvening), expected);
  EXPECT_EQ(makeGeneratedTitle(std::nullopt, C::code, *parseISO8601("2027-03-05T12:00:00Z")),
            library::displayName(C::code) + " \xC2\xB7 5 Mar 2027");
  EXPECT_EQ(makeGeneratedTitle(std::nullopt, C::code, Date::fromSecondsSince1970(std::nan(""))),
            library::displayName(C::code));
}

TEST_F(GeneratedTitleTest, DoubtfulCategoriesAreFlagged) {
  EXPECT_TRUE(shouldFlagForReview(0));
  EXPECT_TRUE(shouldFlagForReview(kReviewConfidenceThreshold - 0.01));
  EXPECT_TRUE(shouldFlagForReview(std::nan("")));
  EXPECT_FALSE(shouldFlagForReview(kReviewConfidenceThreshold));
  EXPECT_FALSE(shouldFlagForReview(0.9));
}

}  // namespace
}  // namespace klipora::intelligence
