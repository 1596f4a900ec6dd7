#include "intelligence/semantic_scores.h"

#include <gtest/gtest.h>

#include "intelligence/hashed_ngram_embedder.h"

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;

// Embeds every text as the same vector unless it is "switch": then as a
// longer one, the way a server embedder changes when its model does.
class SwitchingEmbedder final : public TextEmbedder {
 public:
  std::vector<float> embed(std::string_view text) override {
    if (text.empty()) return {};
    if (text == "switch") return {0, 0, 1, 0};
    return {1, 0, 0};
  }
  std::string name() const override { return "switching"; }
};

TEST(SemanticScoresTest, TextsScoreHighestAgainstTheirOwnKind) {
  auto embedder = makeHashedNgramEmbedder();
  SemanticReferenceSet set(*embedder,
                           {{C::code, "func main() { return nil } // TODO refactor handler"},
                            {C::code, "import foo; class Parser { void parse(); } return value;"},
                            {C::receipts, "Receipt Total 12.50 VAT 19% Card payment thank you"},
                            {C::receipts, "Subtotal Tax Total Visa ending 4242 receipt number"},
                            {C::chats, "   --- \xE2\x80\xA2 "}});  // embeds as nothing
  auto scores = set.scores("class Handler { return parse(value); }");
  ASSERT_EQ(scores.size(), 2u);  // no chats: its only example has no words
  EXPECT_GT(scores[C::code], scores[C::receipts]);
  auto receipt = set.scores("RECEIPT: total 9.99, paid by card");
  EXPECT_GT(receipt[C::receipts], receipt[C::code]);
  for (const auto& [category, score] : receipt) {
    EXPECT_GE(score, 0.0);
    EXPECT_LE(score, 1.0);
  }
  EXPECT_TRUE(set.scores("...").empty());

  SemanticReferenceSet empty(*embedder, {});
  EXPECT_TRUE(empty.scores("anything at all").empty());
}

TEST(SemanticScoresTest, ExamplesOfAnotherLengthAreLeftOut) {
  SwitchingEmbedder embedder;
  SemanticReferenceSet set(embedder, {{C::code, "a"}, {C::code, "switch"}, {C::chats, "switch"}});
  auto scores = set.scores("b");
  EXPECT_DOUBLE_EQ(scores[C::code], 1.0);   // the longer example did not skew the centroid
  EXPECT_DOUBLE_EQ(scores[C::chats], 0.0);  // lengths differ: no similarity
}

}  // namespace
}  // namespace klipora::intelligence
