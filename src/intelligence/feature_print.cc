#include "intelligence/feature_print.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

namespace klipora::intelligence {
namespace {

constexpr size_t kWords = kFeaturePrintBits / 64;
constexpr size_t kPrintSize = 1 + kWords * 8;
// Cells closer than this in brightness count as equal, so that
// flat areas (most of a screenshot) give stable zero bits under re-encoding.
constexpr double kTieMargin = 1.5;
constexpr double kMidGrey = 128;

using Words = std::array<uint64_t, kWords>;

std::vector<uint8_t> GreyPixels(const PixelImage& image) {
  const size_t count = static_cast<size_t>(image.width) * image.height;
  std::vector<uint8_t> grey(count);
  const uint8_t* p = image.pixels.data();
  for (size_t i = 0; i < count; ++i, p += image.channels) {
    switch (image.channels) {
      case 1:
        grey[i] = p[0];
        break;
      case 3:
        grey[i] = Luma(p[0], p[1], p[2]);
        break;
      default:
        grey[i] = OverWhite(Luma(p[0], p[1], p[2]), p[3]);
        break;
    }
  }
  return grey;
}

// Mean brightness of each cell of a cols x rows grid laid over the image,
// row by row. A cell is never empty, even on an image smaller than the grid.
std::vector<double> GridMeans(const std::vector<uint8_t>& grey, int width, int height, int cols,
                              int rows) {
  auto span = [](int cell, int cells, int size) {
    int from = static_cast<int>(int64_t{cell} * size / cells);
    int to = static_cast<int>(int64_t{cell + 1} * size / cells);
    return std::pair{std::min(from, size - 1), std::max(to, from + 1)};
  };
  std::vector<double> means;
  means.reserve(static_cast<size_t>(cols) * rows);
  for (int cy = 0; cy < rows; ++cy) {
    auto [y0, y1] = span(cy, rows, height);
    for (int cx = 0; cx < cols; ++cx) {
      auto [x0, x1] = span(cx, cols, width);
      uint64_t sum = 0;
      for (int y = y0; y < std::min(y1, height); ++y) {
        const uint8_t* row = grey.data() + static_cast<size_t>(y) * width;
        for (int x = x0; x < std::min(x1, width); ++x) sum += row[x];
      }
      uint64_t area = uint64_t(std::min(y1, height) - y0) * uint64_t(std::min(x1, width) - x0);
      means.push_back(static_cast<double>(sum) / static_cast<double>(area));
    }
  }
  return means;
}

class BitWriter {
 public:
  void add(bool bit) {
    if (bit) words_[next_ / 64] |= uint64_t{1} << (next_ % 64);
    ++next_;
  }
  const Words& words() const { return words_; }

 private:
  Words words_{};
  size_t next_ = 0;
};

std::optional<Words> ReadPrint(const library::Bytes& print) {
  const std::string& data = print.data;
  if (data.size() != kPrintSize || static_cast<uint8_t>(data[0]) != kFeaturePrintVersion) {
    return std::nullopt;
  }
  Words words{};
  for (size_t w = 0; w < kWords; ++w) {
    for (size_t b = 0; b < 8; ++b) {
      words[w] |= uint64_t{static_cast<uint8_t>(data[1 + w * 8 + b])} << (8 * b);
    }
  }
  return words;
}

int Distance(const Words& a, const Words& b) {
  int bits = 0;
  for (size_t w = 0; w < kWords; ++w) bits += std::popcount(a[w] ^ b[w]);
  return bits;
}

}  // namespace

std::optional<library::Bytes> makeFeaturePrint(const PixelImage& image) {
  if (image.empty() || (image.channels != 1 && image.channels != 3 && image.channels != 4) ||
      image.pixels.size() < static_cast<size_t>(image.width) * image.height * image.channels) {
    return std::nullopt;
  }
  const std::vector<uint8_t> grey = GreyPixels(image);
  const int w = image.width, h = image.height;
  BitWriter bits;
  const auto wide = GridMeans(grey, w, h, 9, 8);
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) bits.add(wide[y * 9 + x] > wide[y * 9 + x + 1] + kTieMargin);
  }
  const auto tall = GridMeans(grey, w, h, 8, 9);
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) bits.add(tall[y * 8 + x] > tall[(y + 1) * 8 + x] + kTieMargin);
  }
  const auto square = GridMeans(grey, w, h, 8, 8);
  for (double mean : square) bits.add(mean > kMidGrey);
  std::vector<double> sorted = square;
  std::nth_element(sorted.begin(), sorted.begin() + 32, sorted.end());
  const double median = sorted[32];
  for (double mean : square) bits.add(mean > median + kTieMargin);

  library::Bytes print;
  print.data.reserve(kPrintSize);
  print.data.push_back(static_cast<char>(kFeaturePrintVersion));
  for (uint64_t word : bits.words()) {
    for (int b = 0; b < 8; ++b) print.data.push_back(static_cast<char>((word >> (8 * b)) & 0xFF));
  }
  return print;
}

int featurePrintDistance(const library::Bytes& a, const library::Bytes& b) {
  auto x = ReadPrint(a), y = ReadPrint(b);
  if (!x || !y) return kIncomparablePrintDistance;
  return Distance(*x, *y);
}

std::map<ScreenshotCategory, double> visualVotes(const library::Bytes& print,
                                                 std::span<const VisualReference> references) {
  auto query = ReadPrint(print);
  if (!query) return {};
  std::vector<std::pair<int, size_t>> near;  // distance, index
  for (size_t i = 0; i < references.size(); ++i) {
    if (references[i].category == ScreenshotCategory::uncategorized) continue;
    auto words = ReadPrint(references[i].print);
    if (!words) continue;
    int distance = Distance(*query, *words);
    if (distance <= kVisualNeighbourCutOff) near.emplace_back(distance, i);
  }
  if (near.empty()) return {};
  const size_t k = std::min(near.size(), static_cast<size_t>(kVisualNeighbours));
  std::partial_sort(near.begin(), near.begin() + k, near.end());
  std::map<ScreenshotCategory, double> votes;
  double total = 0;
  for (size_t n = 0; n < k; ++n) {
    double weight = 1.0 - near[n].first / double(kVisualNeighbourCutOff + 1);
    votes[references[near[n].second].category] += weight;
    total += weight;
  }
  for (auto& [category, vote] : votes) vote /= std::max(total, 1.0);
  return votes;
}

}  // namespace klipora::intelligence
