#include "processing/ocr_ink.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace klipora::processing {
namespace {

// Closing and opening closer than this are the same flat background.
constexpr int kFlat = 24;
// Ink below kNoise grey levels is compression noise or texture; above it ink
// darkens steeply, so faint grey labels come out nearly black.
constexpr int kNoise = 12;
constexpr int kGain = 2;

template <bool kMax>
inline uint8_t Pick(uint8_t a, uint8_t b) {
  return kMax ? std::max(a, b) : std::min(a, b);
}

template <bool kMax>
void PickRows(uint8_t* __restrict dst, const uint8_t* __restrict a, const uint8_t* __restrict b,
              size_t count) {
  for (size_t i = 0; i < count; ++i) dst[i] = Pick<kMax>(a[i], b[i]);
}

// The extreme over every window of `window` values is the extreme of two
// overlapping windows of the largest power of two that fits: log2(window)
// passes of whole-row operations, which the compiler turns into vector code.
// Returns that power of two; `values` (count + window - 1 long, `spare` as
// long) then hold at [i] the extreme of [i, i + span).
template <bool kMax>
int Doubling(std::vector<uint8_t>& values, std::vector<uint8_t>& spare, int window) {
  int span = 1;
  const size_t length = values.size();
  while (span * 2 <= window) {
    PickRows<kMax>(spare.data(), values.data(), values.data() + span, length - span);
    std::copy(values.end() - span, values.end(), spare.end() - span);
    values.swap(spare);
    span *= 2;
  }
  return span;
}

template <bool kMax>
PixelImage FilterRows(const PixelImage& in, int window) {
  const int r = window / 2;
  const uint8_t identity = kMax ? 0 : 255;
  PixelImage out = PixelImage::filled(in.width, in.height, 1, 0);
  std::vector<uint8_t> values(in.width + 2 * r), spare(values.size());
  for (int y = 0; y < in.height; ++y) {
    std::fill(values.begin(), values.begin() + r, identity);
    std::memcpy(values.data() + r, in.row(y), in.width);
    std::fill(values.end() - r, values.end(), identity);
    const int span = Doubling<kMax>(values, spare, window);
    PickRows<kMax>(out.row(y), values.data(), values.data() + (window - span), in.width);
  }
  return out;
}

template <bool kMax>
PixelImage FilterColumns(const PixelImage& in, int window) {
  const int r = window / 2;
  const size_t w = in.width;
  const uint8_t identity = kMax ? 0 : 255;
  // Rows of the padded image, each pass combining whole rows in place: row i
  // only reads rows below it, which the pass has not reached yet.
  std::vector<uint8_t> rows((in.height + 2 * r) * w, identity);
  std::memcpy(rows.data() + r * w, in.pixels.data(), in.pixels.size());
  const int total = in.height + 2 * r;
  int span = 1;
  while (span * 2 <= window) {
    for (int i = 0; i + span < total; ++i) {
      PickRows<kMax>(&rows[i * w], &rows[i * w], &rows[(i + span) * w], w);
    }
    span *= 2;
  }
  PixelImage out = PixelImage::filled(in.width, in.height, 1, 0);
  for (int y = 0; y < in.height; ++y) {
    PickRows<kMax>(out.row(y), &rows[y * w], &rows[(y + window - span) * w], w);
  }
  return out;
}

int OddWindow(int window) { return std::max(1, window) | 1; }

}  // namespace

PixelImage maxFilter(const PixelImage& grey, int window) {
  window = OddWindow(window);
  return FilterColumns<true>(FilterRows<true>(grey, window), window);
}

PixelImage minFilter(const PixelImage& grey, int window) {
  window = OddWindow(window);
  return FilterColumns<false>(FilterRows<false>(grey, window), window);
}

int strokeWindowFor(int glyphHeight) { return std::max(5, glyphHeight * 3 / 4) | 1; }

PixelImage normalizeInk(const PixelImage& grey, int strokeWindow) {
  if (grey.empty()) return grey;
  const int window = std::max(3, OddWindow(strokeWindow));
  const PixelImage closing = minFilter(maxFilter(grey, window), window);
  const PixelImage opening = maxFilter(minFilter(grey, window), window);
  auto isFlat = [&](int x, int y) { return closing.row(y)[x] - opening.row(y)[x] < kFlat; };

  // The nearest background value, found on a half-size grid (a cell is
  // background when its pixels all are) by a two-pass chamfer propagation:
  // only pixels near text need it, and they sit well inside their panel.
  const int cw = (grey.width + 1) / 2, ch = (grey.height + 1) / 2;
  constexpr uint16_t kFar = std::numeric_limits<uint16_t>::max();
  std::vector<uint16_t> distance(static_cast<size_t>(cw) * ch, kFar);
  std::vector<uint8_t> value(distance.size(), 255);
  for (int cy = 0; cy < ch; ++cy) {
    for (int cx = 0; cx < cw; ++cx) {
      int sum = 0, n = 0;
      bool flat = true;
      for (int y = 2 * cy; y < std::min(grey.height, 2 * cy + 2) && flat; ++y) {
        for (int x = 2 * cx; x < std::min(grey.width, 2 * cx + 2); ++x) {
          flat = flat && isFlat(x, y);
          sum += grey.row(y)[x];
          ++n;
        }
      }
      if (!flat) continue;
      const size_t i = static_cast<size_t>(cy) * cw + cx;
      distance[i] = 0;
      value[i] = static_cast<uint8_t>(sum / n);
    }
  }
  auto relax = [&](size_t i, size_t from, int step) {
    if (distance[from] == kFar) return;
    int d = std::min<int>(kFar - 1, distance[from] + step);
    if (d < distance[i]) {
      distance[i] = static_cast<uint16_t>(d);
      value[i] = value[from];
    }
  };
  for (int cy = 0; cy < ch; ++cy) {
    for (int cx = 0; cx < cw; ++cx) {
      const size_t i = static_cast<size_t>(cy) * cw + cx;
      if (cx > 0) relax(i, i - 1, 3);
      if (cy > 0) {
        relax(i, i - cw, 3);
        if (cx > 0) relax(i, i - cw - 1, 4);
        if (cx + 1 < cw) relax(i, i - cw + 1, 4);
      }
    }
  }
  for (int cy = ch - 1; cy >= 0; --cy) {
    for (int cx = cw - 1; cx >= 0; --cx) {
      const size_t i = static_cast<size_t>(cy) * cw + cx;
      if (cx + 1 < cw) relax(i, i + 1, 3);
      if (cy + 1 < ch) {
        relax(i, i + cw, 3);
        if (cx + 1 < cw) relax(i, i + cw + 1, 4);
        if (cx > 0) relax(i, i + cw - 1, 4);
      }
    }
  }

  uint8_t inkOf[256];
  for (int d = 0; d < 256; ++d) {
    inkOf[d] = static_cast<uint8_t>(255 - std::clamp((d - kNoise) * kGain, 0, 255));
  }
  PixelImage out = PixelImage::filled(grey.width, grey.height, 1, 255);
  for (int y = 0; y < grey.height; ++y) {
    const uint8_t* in = grey.row(y);
    const uint8_t* c = closing.row(y);
    const uint8_t* o = opening.row(y);
    const size_t cellRow = static_cast<size_t>(y / 2) * cw;
    uint8_t* dst = out.row(y);
    for (int x = 0; x < grey.width; ++x) {
      if (c[x] - o[x] < kFlat) continue;
      const size_t cell = cellRow + x / 2;
      // Nothing flat anywhere (a photograph edge to edge): read it as dark
      // text on a light background.
      const int background = distance[cell] == kFar ? c[x] : value[cell];
      dst[x] = inkOf[std::abs(in[x] - background)];
    }
  }
  return out;
}

}  // namespace klipora::processing
