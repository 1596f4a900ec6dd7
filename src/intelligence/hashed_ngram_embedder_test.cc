#include "intelligence/hashed_ngram_embedder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>
#include <vector>

namespace klipora::intelligence {
namespace {

double Similarity(TextEmbedder& embedder, std::string_view a, std::string_view b) {
  return cosineSimilarity(embedder.embed(a), embedder.embed(b));
}

TEST(HashedNgramEmbedderTest, UnitVectorsThatFollowSharedWords) {
  auto embedder = makeHashedNgramEmbedder();
  EXPECT_EQ(embedder->name(), "hashed-ngram");

  auto vector = embedder->embed("Invoice #4711 \xE2\x80\x94 Total due: 12,50 \xE2\x82\xAC");
  ASSERT_EQ(vector.size(), kHashedNgramDimensions);
  double norm = 0;
  for (float v : vector) norm += double(v) * v;
  EXPECT_NEAR(norm, 1.0, 1e-5);

  EXPECT_EQ(embedder->embed("Hello, WORLD!"), embedder->embed("hello   world"));
  EXPECT_GT(Similarity(*embedder, "Grüße aus München", "GRÜSSE AUS MÜNCHEN"), 0.3);

  const char* receipt = "invoice total amount due, payment received";
  EXPECT_GT(Similarity(*embedder, receipt, "the invoiced amount was paid in total"),
            Similarity(*embedder, receipt, "git commit and push the feature branch") + 0.2);

  // Punctuation, symbols and undecodable bytes are not words.
  EXPECT_TRUE(embedder->embed("").empty());
  EXPECT_TRUE(embedder->embed(" --- ... \xE2\x80\xA2 \xC2\xB7 \xE2\x86\x92 \xFF\xFE ").empty());
}

TEST(HashedNgramEmbedderTest, ConcurrentCallsAgreeWithOneThread) {
  auto embedder = makeHashedNgramEmbedder();
  const std::vector<std::string> texts = {"first text", "zweiter Text", "third one",
                                          "fourth, and last"};
  std::vector<std::vector<float>> expected;
  for (const auto& text : texts) expected.push_back(embedder->embed(text));
  std::vector<std::thread> threads;
  std::vector<int> mismatches(texts.size(), 0);
  for (size_t t = 0; t < texts.size(); ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < 200; ++round) {
        mismatches[t] += embedder->embed(texts[t]) != expected[t];
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches, std::vector<int>(texts.size(), 0));
}

}  // namespace
}  // namespace klipora::intelligence
