#include "processing/ocr_tiling.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace klipora::processing {
namespace {

constexpr int kEdge = 40;  // grey step that counts as an edge of something drawn

// How much is drawn across the column `x` (or the row, when `columns` is
// false): the number of strong grey steps along it.
// Only the first channel of colour pixels is looked at.
int Busyness(const PixelImage& grey, int at, bool columns) {
  int count = 0;
  const int step = grey.channels;
  if (columns) {
    for (int y = 1; y < grey.height; ++y) {
      count += std::abs(grey.row(y)[at * step] - grey.row(y - 1)[at * step]) > kEdge;
    }
  } else {
    const uint8_t* row = grey.row(at);
    for (int x = 1; x < grey.width; ++x) {
      count += std::abs(row[x * step] - row[(x - 1) * step]) > kEdge;
    }
  }
  return count;
}

// Cut positions along one axis of `length` pixels, each piece at most maxSide.
std::vector<int> Cuts(const PixelImage& grey, int length, int maxSide, bool columns) {
  int pieces = (length + maxSide - 1) / maxSide;
  std::vector<int> cuts = {0};
  for (int k = 1; k < pieces; ++k) {
    int even = static_cast<int>(static_cast<int64_t>(length) * k / pieces);
    int slack = std::max(1, maxSide / 8);
    // Stay where every piece, this one and the ones left, can still fit.
    int low = std::max({even - slack, cuts.back() + 1, length - (pieces - k) * maxSide});
    int high = std::min({even + slack, cuts.back() + maxSide, length - 1});
    int best = std::clamp(even, low, high), bestScore = -1;
    for (int at = low; at <= high; ++at) {
      int score = Busyness(grey, at, columns);
      if (bestScore < 0 || score < bestScore ||
          (score == bestScore && std::abs(at - even) < std::abs(best - even))) {
        best = at;
        bestScore = score;
      }
    }
    cuts.push_back(best);
  }
  cuts.push_back(length);
  return cuts;
}

}  // namespace

std::vector<OcrBox> planTiles(const PixelImage& grey, int maxSide) {
  if (grey.empty()) return {};
  maxSide = std::max(maxSide, 64);
  std::vector<int> xs = Cuts(grey, grey.width, maxSide, true);
  std::vector<int> ys = Cuts(grey, grey.height, maxSide, false);
  std::vector<OcrBox> tiles;
  for (size_t j = 0; j + 1 < ys.size(); ++j) {
    for (size_t i = 0; i + 1 < xs.size(); ++i)
      tiles.push_back({xs[i], ys[j], xs[i + 1], ys[j + 1]});
  }
  return tiles;
}

PixelImage cropGrey(const PixelImage& grey, const OcrBox& box) {
  PixelImage out;
  out.width = box.right - box.left;
  out.height = box.bottom - box.top;
  out.channels = grey.channels;
  out.pixels.resize(static_cast<size_t>(out.bytesPerRow()) * out.height);
  for (int y = 0; y < out.height; ++y) {
    std::memcpy(out.row(y), grey.row(box.top + y) + box.left * grey.channels, out.bytesPerRow());
  }
  return out;
}

}  // namespace klipora::processing
