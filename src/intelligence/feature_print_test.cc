#include "intelligence/feature_print.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;

void FillRect(PixelImage& image, int x0, int y0, int x1, int y1, uint8_t grey) {
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) image.row(y)[x] = grey;
  }
}

// A dark editor: a side bar and indented light lines of code.
PixelImage Editor(int width = 320, int height = 200, int seed = 1) {
  PixelImage image = PixelImage::filled(width, height, 1, 30);
  FillRect(image, 0, 0, width / 6, height, 45);
  std::mt19937 rng(seed);
  for (int y = height / 20; y + height / 40 < height; y += height / 14) {
    int indent = width / 5 + static_cast<int>(rng() % 4) * width / 20;
    int length = width / 6 + static_cast<int>(rng() % (width / 2));
    FillRect(image, indent, y, std::min(width, indent + length), y + height / 40, 190);
  }
  return image;
}

// A white receipt: a narrow column of dark centred lines and a total.
PixelImage Receipt(int width = 320, int height = 200) {
  PixelImage image = PixelImage::filled(width, height, 1, 250);
  for (int y = height / 10; y < height * 7 / 10; y += height / 12) {
    FillRect(image, width * 3 / 8, y, width * 5 / 8, y + height / 50, 60);
  }
  FillRect(image, width / 2, height * 8 / 10, width * 5 / 8, height * 17 / 20, 20);
  return image;
}

PixelImage WithNoise(PixelImage image, int amplitude) {
  std::mt19937 rng(7);
  for (uint8_t& p : image.pixels) {
    int v = p + static_cast<int>(rng() % (2 * amplitude + 1)) - amplitude;
    p = static_cast<uint8_t>(std::clamp(v, 0, 255));
  }
  return image;
}

// Box-filtered resize of a grey image, as a thumbnailer would.
PixelImage Scaled(const PixelImage& source, int width, int height) {
  PixelImage image = PixelImage::filled(width, height, 1, 0);
  for (int y = 0; y < height; ++y) {
    int y0 = y * source.height / height, y1 = std::max(y0 + 1, (y + 1) * source.height / height);
    for (int x = 0; x < width; ++x) {
      int x0 = x * source.width / width, x1 = std::max(x0 + 1, (x + 1) * source.width / width);
      int sum = 0;
      for (int sy = y0; sy < y1; ++sy) {
        for (int sx = x0; sx < x1; ++sx) sum += source.row(sy)[sx];
      }
      image.row(y)[x] = static_cast<uint8_t>(sum / ((y1 - y0) * (x1 - x0)));
    }
  }
  return image;
}

PixelImage Rgba(const PixelImage& grey) {
  PixelImage image{grey.width, grey.height, 4, {}};
  for (uint8_t p : grey.pixels) image.pixels.insert(image.pixels.end(), {p, p, p, 255});
  return image;
}

library::Bytes Print(const PixelImage& image) {
  auto print = makeFeaturePrint(image);
  EXPECT_TRUE(print.has_value());
  return print.value_or(library::Bytes{});
}

TEST(FeaturePrintTest, AlikeUnderReencodingAndScalingApartAcrossKinds) {
  const library::Bytes editor = Print(Editor());
  EXPECT_EQ(featurePrintDistance(editor, editor), 0);
  EXPECT_EQ(featurePrintDistance(editor, Print(Rgba(Editor()))), 0);
  EXPECT_LE(featurePrintDistance(editor, Print(WithNoise(Editor(), 6))), 8);
  EXPECT_LE(featurePrintDistance(editor, Print(Scaled(Editor(), 256, 160))), 16);
  EXPECT_LE(
      featurePrintDistance(Print(Receipt()), Print(WithNoise(Scaled(Receipt(), 251, 163), 6))), 16);

  EXPECT_GT(featurePrintDistance(editor, Print(Receipt())), 2 * kVisualNeighbourCutOff);
  // Same kind of screen, other content: nearer than another kind, not equal.
  int otherCode = featurePrintDistance(editor, Print(Editor(320, 200, 99)));
  EXPECT_GT(otherCode, 0);
  EXPECT_LT(otherCode, featurePrintDistance(editor, Print(Receipt())));

  // Images smaller than the hash grid still print.
  EXPECT_TRUE(makeFeaturePrint(PixelImage::filled(3, 2, 3, 9)).has_value());
}

TEST(FeaturePrintTest, PrintsThatCannotBeComparedAreFarApart) {
  EXPECT_FALSE(makeFeaturePrint(PixelImage{}).has_value());
  EXPECT_FALSE(makeFeaturePrint(PixelImage::filled(10, 10, 2, 0)).has_value());
  PixelImage truncated = PixelImage::filled(10, 10, 3, 0);
  truncated.pixels.resize(20);
  EXPECT_FALSE(makeFeaturePrint(truncated).has_value());

  const library::Bytes print = Print(Editor());
  EXPECT_EQ(static_cast<uint8_t>(print.data[0]), kFeaturePrintVersion);
  library::Bytes otherVersion = print;
  otherVersion.data[0] = 2;
  library::Bytes shorter{print.data.substr(0, 9)};
  EXPECT_EQ(featurePrintDistance(print, otherVersion), kIncomparablePrintDistance);
  EXPECT_EQ(featurePrintDistance(print, shorter), kIncomparablePrintDistance);
  EXPECT_EQ(featurePrintDistance(library::Bytes{}, library::Bytes{}), kIncomparablePrintDistance);
}

TEST(FeaturePrintTest, NearestFiledNeighboursVote) {
  const library::Bytes query = Print(Editor());
  const library::Bytes same = Print(WithNoise(Editor(), 3));
  const library::Bytes receipt = Print(Receipt());
  library::Bytes incomparable = same;
  incomparable.data[0] = 9;

  EXPECT_TRUE(visualVotes(query, {}).empty());
  std::vector<VisualReference> far = {{receipt, C::receipts}, {incomparable, C::code}};
  EXPECT_TRUE(visualVotes(query, far).empty());
  EXPECT_TRUE(visualVotes(library::Bytes{}, far).empty());

  // Uncategorized neighbours say nothing; the receipt is too far to count.
  std::vector<VisualReference> references = {{same, C::uncategorized}, {same, C::code},
                                             {same, C::code},          {same, C::code},
                                             {same, C::design},        {receipt, C::receipts}};
  auto votes = visualVotes(query, references);
  ASSERT_EQ(votes.size(), 2u);
  EXPECT_NEAR(votes[C::code], 0.75, 1e-9);
  EXPECT_NEAR(votes[C::design], 0.25, 1e-9);

  // Only the nearest kVisualNeighbours vote: exact copies crowd out the rest.
  std::vector<VisualReference> crowded(kVisualNeighbours, {query, C::code});
  crowded.push_back({same, C::design});
  votes = visualVotes(query, crowded);
  EXPECT_EQ(votes.size(), 1u);
  EXPECT_DOUBLE_EQ(votes[C::code], 1.0);

  // A lone neighbour near the cut-off is a weak vote, not a unanimous one.
  library::Bytes distant = query;
  for (int byte = 1; byte <= kVisualNeighbourCutOff / 8; ++byte) distant.data[byte] ^= '\xFF';
  std::vector<VisualReference> lone = {{distant, C::chats}};
  votes = visualVotes(query, lone);
  ASSERT_EQ(votes.count(C::chats), 1u);
  EXPECT_GT(votes[C::chats], 0.0);
  EXPECT_LT(votes[C::chats], 0.1);
}

}  // namespace
}  // namespace klipora::intelligence
