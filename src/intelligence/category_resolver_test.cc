#include "intelligence/category_resolver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "intelligence/category_test_support.h"
#include "platform/testing/log_capture.h"

namespace klipora::intelligence {
namespace {

using namespace testing;  // NOLINT: the helpers above
using C = ScreenshotCategory;
using ::testing::HasSubstr;

ResolutionInput TerminalWithoutText() {
  ResolutionInput input;
  input.sourceAppBundleID = "com.apple.Terminal";
  return input;
}

TEST(CategoryResolverTest, TerminalWithoutTextIsCode) {
  ResolutionResult result = Resolve(TerminalWithoutText());
  ASSERT_EQ(result.primaryCategory, C::code);
  ASSERT_EQ(result.candidates.size(), 1u);
  EXPECT_DOUBLE_EQ(result.candidates[0].score, 0.65);
  EXPECT_DOUBLE_EQ(result.confidence, 0.8125);
  EXPECT_EQ(result.explanation, "Code (81% confidence): sourceApp \"com.apple.Terminal\" 0.65");
}

TEST(CategoryResolverTest, LongTextStartsAfterFourHundredCharacters) {
  EXPECT_EQ(Candidate(Resolve(TextInput(std::string(400, 'q'))), C::documents), nullptr);
  EXPECT_NEAR(Weight(Resolve(TextInput(std::string(401, 'q'))), C::documents, "long_text(401)"),
              0.1001, 1e-12);
  // Characters, not bytes: 401 "é" are 802 bytes.
  std::string accented;
  for (int i = 0; i < 401; ++i) accented += "\xc3\xa9";
  EXPECT_NEAR(Weight(Resolve(TextInput(accented)), C::documents, "long_text(401)"), 0.1001, 1e-12);
  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput(std::string(5000, 'q'))), C::documents,
                          "long_text(5000)"),
                   0.2);
}

TEST(CategoryResolverTest, SemanticScoresNeedToExceedTheThreshold) {
  ResolutionInput input;
  input.semanticScores[C::travel] = 0.55;
  EXPECT_TRUE(Resolve(input).candidates.empty());

  input.semanticScores[C::travel] = 0.6;
  ResolutionResult weak = Resolve(input);
  EXPECT_NEAR(Weight(weak, C::travel, "nlembedding_weak(0.60)"), 0.09, 1e-12);

  ResolutionInput backed = TerminalWithoutText();
  backed.semanticScores[C::code] = 0.6;
  EXPECT_NEAR(Weight(Resolve(backed), C::code, "nlembedding(0.60)"), 0.24, 1e-12);
}

TEST(CategoryResolverTest, VisualVotesBelowTheFloorAreDropped) {
  ResolutionInput input;
  input.visualVotes[C::media] = 0.5;  // 0.08 x 0.5 = 0.04
  EXPECT_TRUE(Resolve(input).candidates.empty());

  input.visualVotes[C::media] = 0.7;
  EXPECT_NEAR(Weight(Resolve(input), C::media, "featureprint_weak(0.70)"), 0.056, 1e-12);

  ResolutionInput backed = TerminalWithoutText();
  backed.visualVotes[C::code] = 0.5;
  EXPECT_NEAR(Weight(Resolve(backed), C::code, "featureprint(0.50)"), 0.2, 1e-12);
}

TEST(CategoryResolverTest, KeepsTheFourBestOfSixCategories) {
  ResolutionInput input;
  input.classificationLabels = {{"settings", 0.2f}, {"document", 0.6f}, {"chat", 0.9f},
                                {"video", 0.8f}, {"design", 0.7f}};
  input.filename = "travel.png";
  ResolutionResult result = Resolve(input);
  ASSERT_EQ(result.candidates.size(), 4u);
  EXPECT_EQ(result.candidates[0].category, C::chats);
  EXPECT_EQ(result.candidates[1].category, C::media);
  EXPECT_EQ(result.candidates[2].category, C::design);
  EXPECT_EQ(result.candidates[3].category, C::documents);
}

TEST(CategoryResolverTest, TiesKeepTheOrderCategoriesEnteredIn) {
  ResolutionInput input;
  input.classificationLabels = {{"video", 0.5f}, {"chat", 0.5f}};
  ResolutionResult result = Resolve(input);
  EXPECT_EQ(result.candidates[0].category, C::media);
  EXPECT_EQ(result.candidates[1].category, C::chats);
  EXPECT_DOUBLE_EQ(result.confidence, 0.6 * (0.1 / 0.8));

  std::swap(input.classificationLabels[0], input.classificationLabels[1]);
  EXPECT_EQ(Resolve(input).primaryCategory, C::chats);
}

TEST(CategoryResolverTest, ConfidenceRewardsTheMarginOverTheRunnerUp) {
  auto candidates = [](std::vector<double> scores) {
    std::vector<CategoryCandidate> out;
    for (double s : scores) out.push_back({C::code, s, {}});
    return out;
  };
  EXPECT_EQ(computeConfidence({}), 0);
  EXPECT_EQ(computeConfidence(candidates({0})), 0);
  EXPECT_DOUBLE_EQ(computeConfidence(candidates({2.0})), 1);
  EXPECT_DOUBLE_EQ(computeConfidence(candidates({0.4, 0.1})), 0.6 * 0.5 + 0.4 * 0.75);
  EXPECT_DOUBLE_EQ(computeConfidence(candidates({0.4, -0.4})), 0.6 * 0.5 + 0.4);
}

TEST(CategoryResolverTest, ACategoryWithoutPositiveScoreIsNeverPrimary) {
  // "payment" 0.05, then the shipping context lowers payments by 0.15.
  ResolutionResult result = Resolve(TextInput("payment tracking"));
  ASSERT_EQ(result.candidates.size(), 1u);
  EXPECT_NEAR(result.candidates[0].score, -0.1, 1e-12);
  EXPECT_FALSE(result.primaryCategory.has_value());
  EXPECT_EQ(result.confidence, 0);
  EXPECT_EQ(result.explanation, "Uncategorized (0% confidence)");
}

TEST(CategoryResolverTest, ExplanationNamesTheThreeStrongestEntries) {
  ResolutionInput input = TextInput("RECEIPT\nSubtotal $12.00\nTax $1.00\nTotal: $13.00\n");
  input.classificationLabels = {{"document", 0.5f}};
  ResolutionResult result = Resolve(input);
  ASSERT_EQ(result.primaryCategory, C::receipts);
  EXPECT_THAT(result.explanation,
              HasSubstr("% confidence): ocrText \"receipt\" 0.15, ocrText \"tax\" 0.15, "
                        "ocrText \"subtotal\" 0.15"));
  EXPECT_THAT(result.explanation, ::testing::StartsWith("Receipts ("));
  // Evidence is sorted by weight, largest first, stable among equals.
  const auto& evidence = Candidate(result, C::receipts)->evidence;
  EXPECT_EQ(evidence.back().signal, "total:");
}

TEST(CategoryResolverTest, WritesTheClassifierTrail) {
  klipora::testing::ScopedLogCapture log;
  ResolutionInput input = TerminalWithoutText();
  input.filename = "Screenshot From 2024-05-01.png";
  input.visualVotes[C::code] = 0.5;
  Resolve(input);
  auto lines = log.matching("[CLASSIFY] builtin-");
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0],
            "[CLASSIFY] builtin-start file=Screenshot_From_2024-05-01.png ocrLen=0 labels=0 "
            "app=com.apple.Terminal");
  EXPECT_EQ(lines[1], "[CLASSIFY] builtin-semantic seed=code:0.650");
  EXPECT_EQ(lines[2], "[CLASSIFY] builtin-visual votes=code:0.500");
  EXPECT_EQ(lines[3], "[CLASSIFY] builtin-resolve primary=code conf=1.000 scores=code:0.850");
}

TEST(CategoryResolverTest, ReferenceKeywordSearchGivesTheSameResults) {
  const char* texts[] = {
      "func main() {\n  let total = items.map { $0.price }\n  return total\n}\n",
      "Alice: are you online?\nBob: typing...\nDelivered\nRead 10:42",
      "Order #123 shipped via FedEx. Tracking: 1Z999. Delivery date: May 3. Total: $25.00",
      "ERROR: Payment failed. Your card was declined (code 402).",
      "Now Playing — Episode 12 · 3:07 / 45:10 · 1.2M views",
      "PREFERENCES\nEnable notifications  [toggle]\nDisable sounds\nSETTINGS",
      "By Jane Doe · Published May 1 · 6 min read\nRead more articles in our newsletter",
      "\xff\xfe invalid \xc3 bytes $ \xe2\x82\xac 12:30 pm // https://x.com/y"};
  CategoryResolver reference(KeywordSearch::reference);
  for (const char* text : texts) {
    ResolutionResult fast = Resolve(TextInput(text));
    ResolutionResult slow = reference.resolve(TextInput(text));
    EXPECT_EQ(fast.explanation, slow.explanation) << text;
    ASSERT_EQ(fast.candidates.size(), slow.candidates.size()) << text;
    for (size_t i = 0; i < fast.candidates.size(); ++i) {
      EXPECT_EQ(fast.candidates[i].evidence, slow.candidates[i].evidence) << text;
    }
  }
}

// Inputs that must neither fail nor leave 0...1.
TEST(CategoryResolverTest, BadInputStaysWithinBounds) {
  auto check = [](const ResolutionInput& input) {
    ResolutionResult result = Resolve(input);
    EXPECT_GE(result.confidence, 0);
    EXPECT_LE(result.confidence, 1);
    for (const auto& candidate : result.candidates) EXPECT_TRUE(std::isfinite(candidate.score));
    EXPECT_FALSE(result.explanation.empty());
    return result;
  };
  ResolutionResult empty = check(TextInput(""));
  EXPECT_EQ(empty.explanation, "Uncategorized (0% confidence)");

  std::string megabyte;
  while (megabyte.size() < (1u << 20)) megabyte += "Total: $4.99 error at line 7 by Ann (ok) ";
  ResolutionResult big = check(TextInput(megabyte));
  EXPECT_DOUBLE_EQ(Weight(big, C::documents, "long_text(" + std::to_string(megabyte.size()) + ")"),
                   0.2);

  check(TextInput("\xc3\x28 \xa0\xa1 \xf0\x28\x8c\xbc error\xff: \xed\xa0\x80 12:3\x80"));
  check(TextInput(std::string(100000, ':')));
  std::string clock;
  for (int i = 0; i < 5000; ++i) clock += std::to_string(i % 100) + ":";
  check(TextInput(clock));

  const float nan = std::numeric_limits<float>::quiet_NaN();
  ResolutionInput labels;
  labels.classificationLabels = {{"chat", nan}, {"video", -0.5f}, {"design", 7.0f}, {"", 0.5f}};
  ResolutionResult labelled = check(labels);
  EXPECT_EQ(Candidate(labelled, C::chats), nullptr);
  EXPECT_EQ(Candidate(labelled, C::media), nullptr);
  EXPECT_DOUBLE_EQ(Score(labelled, C::design), 0.2);  // a confidence above 1 counts as 1

  ResolutionInput noApp;
  noApp.sourceAppBundleID = "";
  noApp.sourceAppName = "";
  EXPECT_TRUE(check(noApp).candidates.empty());

  const double dnan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  ResolutionInput similarity;
  similarity.semanticScores = {{C::code, 3.0}, {C::travel, dnan}, {C::media, inf},
                               {C::uncategorized, 0.9}};
  similarity.visualVotes = {{C::design, dnan}, {C::chats, -inf}, {C::social, 40.0}};
  ResolutionResult similar = check(similarity);
  EXPECT_NEAR(Weight(similar, C::code, "nlembedding_weak(1.00)"), 0.15, 1e-12);
  EXPECT_NEAR(Weight(similar, C::media, "nlembedding_weak(1.00)"), 0.15, 1e-12);
  EXPECT_NEAR(Weight(similar, C::social, "featureprint_weak(1.00)"), 0.08, 1e-12);
  EXPECT_EQ(Candidate(similar, C::travel), nullptr);
  EXPECT_EQ(Candidate(similar, C::uncategorized), nullptr);
}

}  // namespace
}  // namespace klipora::intelligence
