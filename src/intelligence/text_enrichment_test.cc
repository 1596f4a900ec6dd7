#include "intelligence/text_enrichment.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace klipora::intelligence {
namespace {

using Strings = std::vector<std::string>;

TEST(TextEnrichmentTest, EntitiesInOrderOnceEach) {
  const std::string text =
      "Mail anna.berg@example.co.uk or see https://shop.example.com/a/b?id=7 (docs).\n"
      "Total: $1,234.56 and 12,50 \xE2\x82\xAC, EUR 40 paid on 2026-11-24T10:00 and 24.11.2026,\n"
      "due Nov 30, 2026 or 3rd March. Call +49 30 1234567 or (555) 123-4567.\n"
      "Saved to /home/anna/Documents/receipt.pdf and C:\\Users\\anna\\file.txt.\n"
      "Again: ANNA.BERG@example.co.uk, www.example.org/x, 555-1234.";
  EXPECT_EQ(
      findEntities(text),
      (Strings{"anna.berg@example.co.uk", "https://shop.example.com/a/b?id=7", "$1,234.56",
               "12,50 \xE2\x82\xAC", "EUR 40", "2026-11-24", "24.11.2026", "Nov 30, 2026",
               "3rd March", "+49 30 1234567", "(555) 123-4567", "/home/anna/Documents/receipt.pdf",
               "C:\\Users\\anna\\file.txt", "www.example.org/x", "555-1234"}));

  // Numbers that are neither phones, dates nor amounts; words with slashes.
  EXPECT_EQ(findEntities("v1.2.3 at 10:30:15, order 12345678, ip 192.168.10.200, "
                         "and/or 3/4 km/h 1.5 x 2 = 3, 2026 was a year, 12 34 56"),
            Strings{});

  std::string many;
  for (int i = 0; i < 30; ++i) many += "user" + std::to_string(i) + "@mail.example.com ";
  auto capped = findEntities(many);
  ASSERT_EQ(capped.size(), kMaxEntities);
  EXPECT_EQ(capped.front(), "user0@mail.example.com");
}

TEST(TextEnrichmentTest, KeywordsAreTheDistinctiveWords) {
  const std::string text =
      "The invoice from Müller: invoice number 4711, invoice total. Shipping via parcel; "
      "the parcel ships today. Thanks! ok id 42abc";
  auto candidates = keywordCandidates(text);
  EXPECT_EQ(candidates, (Strings{"invoice", "parcel", "müller", "number", "total", "shipping",
                                 "ships", "today", "thanks"}));

  // Without library counts, term frequency decides.
  auto plain = enrichText(text, {}, 0).keywords;
  ASSERT_GE(plain.size(), 2u);
  EXPECT_EQ(plain[0], "invoice");
  EXPECT_EQ(plain[1], "parcel");

  // Against the library, words every item has fall behind rare ones, and a
  // word more than half of a large library contains is no keyword at all.
  std::map<std::string, int64_t> df = {{"invoice", 60}, {"parcel", 2}, {"müller", 1},
                                       {"number", 30},  {"total", 40}, {"shipping", 20},
                                       {"ships", 5},    {"today", 45}, {"thanks", 49}};
  auto ranked = enrichText(text, df, 100).keywords;
  ASSERT_FALSE(ranked.empty());
  EXPECT_EQ(ranked[0], "parcel");
  EXPECT_EQ(std::count(ranked.begin(), ranked.end(), "invoice"), 0);
  EXPECT_LE(ranked.size(), kMaxKeywords);

  std::string wordy;
  for (int i = 0; i < 100; ++i)
    wordy += "word" + std::string(1, 'a' + i % 26) + std::string(1, 'a' + i / 26) + " ";
  EXPECT_EQ(keywordCandidates(wordy).size(), kMaxKeywordCandidates);
  EXPECT_EQ(enrichText(wordy, {}, 0).keywords.size(), kMaxKeywords);
  EXPECT_TRUE(keywordCandidates("a an to 12 345 the and").empty());
}

TEST(TextEnrichmentTest, SummaryIsTheFirstMeaningfulSentence) {
  EXPECT_EQ(summarize("File  Edit  View\n12:41  100%  \xE2\x96\xB6\n  OK  \n"
                      "  Your order has shipped and will arrive on\n"
                      "tuesday between noon and six. Track it online.\nReturn policy applies"),
            "Your order has shipped and will arrive on tuesday between noon and six.");
  EXPECT_EQ(summarize("Error: the file could not be saved because the disk is full"),
            "Error: the file could not be saved because the disk is full");
  // Prose wins over an earlier header; without prose the first long line.
  EXPECT_EQ(summarize("From: Jane Doe <jane@acme.io>\nSubject: Q3\nHi Tom, the report is here."),
            "Hi Tom, the report is here.");
  EXPECT_EQ(summarize("STARBUCKS 1234\n123 Main Street, Seattle WA\nLatte $5.45"),
            "123 Main Street, Seattle WA");
  EXPECT_EQ(summarize("Back\n1 2 3 4 5 6 7 8 9 10 11 12\n--- *** ---\nSettings"), std::nullopt);

  std::string longLine;
  for (int i = 0; i < 60; ++i) longLine += "lorem ipsum ";
  auto capped = summarize(longLine);
  ASSERT_TRUE(capped.has_value());
  EXPECT_TRUE(capped->ends_with("ipsum\xE2\x80\xA6") || capped->ends_with("lorem\xE2\x80\xA6"));
  EXPECT_LE(capped->size(), kMaxSummaryLength + 2);

  auto all = enrichText("Meet me at the station tomorrow at nine, call +1 415 555 0100", {}, 0);
  EXPECT_EQ(all.entities, Strings{"+1 415 555 0100"});
  EXPECT_EQ(all.summary, "Meet me at the station tomorrow at nine, call +1 415 555 0100");
  EXPECT_EQ(enrichText("\xFF\xFE invalid \xC3", {}, 0).keywords, Strings{"invalid"});
}

}  // namespace
}  // namespace klipora::intelligence
