#include "library/screenshot_item.h"

#include <gtest/gtest.h>

#include "library/app_settings.h"
#include "library/sidebar_selection.h"

namespace klipora::library {
namespace {

TEST(ScreenshotItemTest, TypedViewsReadAndWriteTheRawEncodings) {
  ScreenshotItem item;
  EXPECT_TRUE(item.userTags().empty());
  item.setUserTags({"a", "b"});
  EXPECT_EQ(item.userTagsRaw, std::string("a\x1f" "b"));
  item.processingStateRaw = "somethingNew";
  EXPECT_EQ(item.processingState(), ProcessingState::pending);
  item.setProcessingState(ProcessingState::ocrComplete);
  EXPECT_EQ(item.processingStateRaw, "ocrComplete");
  item.generatedCategoryCandidatesRaw = "code:0.8\x1f" "design\x1f" "errors:x";
  EXPECT_EQ(item.generatedCategoryCandidates(), (std::vector<CategoryScore>{{"code", 0.8}}));
}

TEST(ScreenshotItemTest, UserChoicesOverrideGeneratedOnes) {
  ScreenshotItem item;
  item.generatedCategory = ScreenshotCategory::errors;
  EXPECT_EQ(item.effectiveCategory(), ScreenshotCategory::errors);
  item.userCategory = ScreenshotCategory::uncategorized;
  EXPECT_EQ(item.effectiveCategory(), ScreenshotCategory::uncategorized);

  item.userCategory.reset();
  item.userTitle = "   ";
  EXPECT_FALSE(item.displayTitle().empty());
  EXPECT_EQ(item.displayTitle(), "Errors");  // nothing generated: the category name
  item.ocrText = "\n  Segmentation fault (core dumped)  \nmore";
  EXPECT_EQ(item.displayTitle(), "Segmentation fault (core dumped)");
  item.generatedTitle = "Crash in parser";
  EXPECT_EQ(item.displayTitle(), "Crash in parser");
  item.userTitle = "  My title\n";
  EXPECT_EQ(item.displayTitle(), "My title");
  EXPECT_TRUE(item.hasUserTitle());
}

TEST(ScreenshotItemTest, TrimmingTakesEveryUnicodeSpaceButNothingElse) {
  // No-break, narrow no-break, em, ideographic spaces, a line separator, NEL.
  EXPECT_EQ(trimmed("\u00A0\u202F Receipt\u2003\u3000\u2028\u0085\t"), "Receipt");
  EXPECT_EQ(trimmed("\u00A0\u3000"), "");
  EXPECT_EQ(trimmed("a\u00A0b"), "a\u00A0b");  // inside stays
  EXPECT_EQ(trimmed("\u00E9t\u00E9"), "\u00E9t\u00E9");  // letters that end in a lead byte pattern
  EXPECT_EQ(trimmed("\u200Bzero-width\u200B"), "\u200Bzero-width\u200B");  // not white space
  EXPECT_EQ(trimmed("x\xA0"), "x\xA0");  // a stray byte is not a no-break space
  ScreenshotItem item;
  item.generatedCategory = ScreenshotCategory::errors;
  item.userTitle = "\u00A0\u00A0";
  EXPECT_EQ(item.displayTitle(), "Errors");
}

TEST(ScreenshotItemTest, DisplayedStateAndTrash) {
  ScreenshotItem item;
  item.setProcessingState(ProcessingState::partiallyFailed);
  item.processingError = "OCR failed";
  EXPECT_EQ(item.displayProcessingState(), ProcessingState::complete);
  EXPECT_FALSE(item.showsProcessingFailure());
  item.processingError = "Image unreadable";
  EXPECT_TRUE(item.showsProcessingFailure());
  EXPECT_FALSE(item.isTrashed());
  item.deletedAt = Date::fromSecondsSince1970(1);
  EXPECT_TRUE(item.isTrashed());
}

TEST(ScreenshotItemTest, SearchableTextJoinsTheWordsWithSingleSpaces) {
  ScreenshotItem item;
  item.originalFilename = "Screenshot.png";
  item.ocrText = "total 12.50";
  item.setUserTags({"Work", "tax 2024"});
  item.setGeneratedKeywords({"invoice", "vat"});
  std::string text = item.searchableText();
  EXPECT_NE(text.find("Work tax 2024"), std::string::npos);
  EXPECT_NE(text.find("invoice vat"), std::string::npos);
  EXPECT_EQ(text.find("  "), std::string::npos);
}

TEST(EnumerationsTest, RawValuesAndSidebarIdsRoundTrip) {
  for (auto c : kAllScreenshotCategories) EXPECT_EQ(fromRaw<ScreenshotCategory>(rawValue(c)), c);
  EXPECT_EQ(rawValue(ScreenshotCategory::uncategorized), "uncategorized");
  EXPECT_EQ(englishName(ScreenshotCategory::code), "Code");
  EXPECT_EQ(symbolName(ScreenshotCategory::media), "play.rectangle");
  EXPECT_FALSE(fromRaw<ScreenshotCategory>("Code"));
  UUID id = UUID::Random();
  for (const auto& s : {SidebarSelection::category(ScreenshotCategory::receipts),
                        SidebarSelection::customCategory(id), SidebarSelection::tag("a:b c"),
                        SidebarSelection::savedSearch(id), SidebarSelection::sharedSet(id),
                        SidebarSelection::fixed(SidebarSelection::Kind::trash)}) {
    EXPECT_EQ(SidebarSelection::fromID(s.id()), s) << s.id();
  }
  EXPECT_EQ(SidebarSelection::fixed(SidebarSelection::Kind::thisWeek).displayName(), "This Week");
  EXPECT_FALSE(SidebarSelection::fromID("category:nope"));
  EXPECT_FALSE(SidebarSelection::fromID("savedSearch:not-a-uuid"));
}

TEST(EnumerationsTest, DatePresetsUseCalendarArithmetic) {
  setenv("TZ", "UTC", 1);
  tzset();
  Date now = *parseISO8601("2024-03-15T10:30:00Z");
  EXPECT_FALSE(dateRange(DateFilterPreset::all, now));
  EXPECT_FALSE(dateRange(DateFilterPreset::custom, now));
  auto yesterday = *dateRange(DateFilterPreset::yesterday, now);
  EXPECT_EQ(formatISO8601(yesterday.start), "2024-03-14T00:00:00Z");
  EXPECT_EQ(formatISO8601(*yesterday.end), "2024-03-15T00:00:00Z");
  EXPECT_EQ(formatISO8601(dateRange(DateFilterPreset::last7Days, now)->start),
            "2024-03-08T10:30:00Z");
  auto lastMonth = *dateRange(DateFilterPreset::lastMonth, now);
  EXPECT_EQ(formatISO8601(lastMonth.start), "2024-02-01T00:00:00Z");
  EXPECT_EQ(formatISO8601(*lastMonth.end), "2024-03-01T00:00:00Z");
  EXPECT_FALSE(dateRange(DateFilterPreset::thisMonth, now)->end);
}

TEST(AppSettingsTest, AFreshRowHasTheDefaults) {
  AppSettings s;
  EXPECT_EQ(s.bulkImportThreshold, 100);
  EXPECT_EQ(s.trashRetentionDays, 30);
  EXPECT_DOUBLE_EQ(s.thumbnailQuality, 0.8);
  EXPECT_EQ(s.translationProvider, "apple");
  EXPECT_TRUE(s.copyInsteadOfMove);
  EXPECT_FALSE(s.automaticImportEnabled);
  EXPECT_EQ(s.playSoundOnProcessing, true);
  s.translationProvider = "google";
  EXPECT_FALSE(s.mayTranslateOnline());  // no consent given
}

}  // namespace
}  // namespace klipora::library
