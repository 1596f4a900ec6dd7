#include "processing/ocr_preparation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "processing/ocr_ink.h"
#include "processing/ocr_layout.h"

namespace klipora::processing {
namespace {

constexpr int kBlock = 16;        // the glyph estimate's background is taken per block
constexpr int kInkContrast = 64;  // grey levels between ink and its background

// Median grey of each kBlock×kBlock block: in screenshots text covers a
// minority of any block, so the median is the local background.
std::vector<uint8_t> BlockBackgrounds(const PixelImage& grey, int blocksX, int blocksY) {
  std::vector<uint8_t> backgrounds(static_cast<size_t>(blocksX) * blocksY);
  std::array<int, 256> histogram{};
  for (int by = 0; by < blocksY; ++by) {
    for (int bx = 0; bx < blocksX; ++bx) {
      histogram.fill(0);
      int x0 = bx * kBlock, y0 = by * kBlock;
      int x1 = std::min(grey.width, x0 + kBlock), y1 = std::min(grey.height, y0 + kBlock);
      for (int y = y0; y < y1; ++y) {
        const uint8_t* row = grey.row(y);
        for (int x = x0; x < x1; ++x) ++histogram[row[x]];
      }
      int half = ((x1 - x0) * (y1 - y0) + 1) / 2, seen = 0, value = 0;
      while (value < 255 && (seen += histogram[value]) < half) ++value;
      backgrounds[static_cast<size_t>(by) * blocksX + bx] = static_cast<uint8_t>(value);
    }
  }
  return backgrounds;
}

}  // namespace

PixelImage toGrey(const PixelImage& image) {
  if (image.channels == 1) return image;
  PixelImage grey = PixelImage::filled(image.width, image.height, 1, 255);
  const size_t count = static_cast<size_t>(image.width) * image.height;
  const uint8_t* src = image.pixels.data();
  for (size_t i = 0; i < count; ++i, src += image.channels) {
    uint8_t luma = Luma(src[0], src[1], src[2]);
    grey.pixels[i] = image.channels == 4 ? OverWhite(luma, src[3]) : luma;
  }
  return grey;
}

bool hasDarkBackground(const PixelImage& grey) {
  if (grey.empty()) return false;
  std::array<int64_t, 256> histogram{};
  int step = std::max(
      1, static_cast<int>(std::sqrt(static_cast<double>(grey.width) * grey.height / 250'000.0)));
  int64_t count = 0;
  for (int y = 0; y < grey.height; y += step) {
    const uint8_t* row = grey.row(y);
    for (int x = 0; x < grey.width; x += step, ++count) ++histogram[row[x]];
  }
  int64_t seen = 0;
  for (int value = 0; value < 128; ++value) seen += histogram[value];
  return seen * 2 > count;
}

int estimateGlyphHeight(const PixelImage& grey) {
  if (grey.empty()) return 0;
  int blocksX = (grey.width + kBlock - 1) / kBlock, blocksY = (grey.height + kBlock - 1) / kBlock;
  std::vector<uint8_t> backgrounds = BlockBackgrounds(grey, blocksX, blocksY);
  // Ink of either polarity: pixels far from their block's background.
  PixelImage mask = PixelImage::filled(grey.width, grey.height, 1, 0);
  for (int y = 0; y < grey.height; ++y) {
    const uint8_t* row = grey.row(y);
    const uint8_t* background = &backgrounds[static_cast<size_t>(y / kBlock) * blocksX];
    uint8_t* out = mask.row(y);
    for (int x = 0; x < grey.width; ++x) {
      out[x] = std::abs(row[x] - background[x / kBlock]) >= kInkContrast;
    }
  }
  return medianGlyphHeight(connectedShapes(mask));
}

void invertInPlace(PixelImage& grey) {
  for (uint8_t& p : grey.pixels) p = static_cast<uint8_t>(255 - p);
}

namespace {

constexpr int kWeightBits = 12;  // resampling weights are in 1/4096ths

// Which source samples each output sample of a resampled line mixes, and
// how much of each.
struct Kernel {
  int taps = 0;                 // per output sample
  std::vector<int> first;       // first source sample of each output sample
  std::vector<int32_t> weight;  // `taps` weights per output sample, summing to 4096
};

Kernel MakeKernel(int in, int out, double factor) {
  Kernel k;
  k.first.resize(out);
  if (factor >= 1) {
    // Bilinear: the two samples around each output sample's centre.
    k.taps = 2;
    k.weight.resize(static_cast<size_t>(out) * 2);
    for (int o = 0; o < out; ++o) {
      double at = std::clamp((o + 0.5) / factor - 0.5, 0.0, in - 1.0);
      int left = std::min(static_cast<int>(at), std::max(0, in - 2));
      int right = std::round((at - left) * (1 << kWeightBits));
      k.first[o] = left;
      k.weight[o * 2] = (1 << kWeightBits) - right;
      k.weight[o * 2 + 1] = in > 1 ? right : 0;
    }
    return k;
  }
  // By area: each source sample weighs by how much of it the output covers.
  k.taps = static_cast<int>(std::ceil(1 / factor)) + 1;
  k.weight.assign(static_cast<size_t>(out) * k.taps, 0);
  for (int o = 0; o < out; ++o) {
    double from = o / factor, to = std::min<double>(in, (o + 1) / factor);
    int first = std::min(static_cast<int>(from), in - 1);
    k.first[o] = std::min(first, std::max(0, in - k.taps));
    int32_t total = 0;
    for (int t = 0; t < k.taps; ++t) {
      int s = k.first[o] + t;
      double covered = std::max(0.0, std::min<double>(s + 1, to) - std::max<double>(s, from));
      int32_t w = static_cast<int32_t>(std::lround(covered * factor * (1 << kWeightBits)));
      k.weight[o * k.taps + t] = w;
      total += w;
    }
    // Rounding leaves the sum a little off; the largest weight takes it up.
    auto row = k.weight.begin() + o * k.taps;
    *std::max_element(row, row + k.taps) += (1 << kWeightBits) - total;
  }
  return k;
}

uint8_t Round(int32_t sum) {
  return static_cast<uint8_t>(std::clamp((sum + (1 << (kWeightBits - 1))) >> kWeightBits, 0, 255));
}

}  // namespace

PixelImage resizeGrey(const PixelImage& grey, double factor) {
  const int width = std::max(1, static_cast<int>(std::lround(grey.width * factor)));
  const int height = std::max(1, static_cast<int>(std::lround(grey.height * factor)));
  const Kernel kx = MakeKernel(grey.width, width, static_cast<double>(width) / grey.width);
  const Kernel ky = MakeKernel(grey.height, height, static_cast<double>(height) / grey.height);
  // Each source row resampled across once, then rows mixed down.
  PixelImage across = PixelImage::filled(width, grey.height, 1, 0);
  for (int y = 0; y < grey.height; ++y) {
    const uint8_t* src = grey.row(y);
    uint8_t* dst = across.row(y);
    for (int x = 0; x < width; ++x) {
      const int32_t* w = &kx.weight[static_cast<size_t>(x) * kx.taps];
      const uint8_t* s = src + kx.first[x];
      int32_t sum = 0;
      for (int t = 0; t < kx.taps; ++t) sum += s[t] * w[t];
      dst[x] = Round(sum);
    }
  }
  PixelImage out = PixelImage::filled(width, height, 1, 0);
  std::vector<int32_t> sums(width);
  for (int y = 0; y < height; ++y) {
    std::fill(sums.begin(), sums.end(), 0);
    for (int t = 0; t < ky.taps; ++t) {
      const int32_t w = ky.weight[static_cast<size_t>(y) * ky.taps + t];
      if (w == 0) continue;
      const uint8_t* src = across.row(ky.first[y] + t);
      for (int x = 0; x < width; ++x) sums[x] += src[x] * w;
    }
    uint8_t* dst = out.row(y);
    for (int x = 0; x < width; ++x) dst[x] = Round(sums[x]);
  }
  return out;
}

PreparedImage prepareForRecognition(PixelImage grey, const OCRPreparationOptions& options) {
  PreparedImage prepared;
  if (!options.greyscale || grey.empty()) {
    prepared.image = std::move(grey);
    return prepared;
  }
  int glyph = estimateGlyphHeight(grey);
  const double target = options.targetGlyphHeight;
  // Large text is reduced first, so that everything after works on fewer
  // pixels; small text is enlarged last, from the clean image.
  if (options.downscaleLargeText && glyph > options.downscaleAboveGlyphHeight) {
    prepared.scale = static_cast<double>(options.downscaleGlyphHeight) / glyph;
    grey = resizeGrey(grey, prepared.scale);
    glyph = options.downscaleGlyphHeight;
  }
  if (options.normalizeInk) {
    // Without text-like shapes the window only has to exceed thin lines.
    grey = normalizeInk(grey, strokeWindowFor(glyph > 0 ? glyph : 10));
  } else if (options.invertDarkBackground && hasDarkBackground(grey)) {
    invertInPlace(grey);
  }
  if (options.upscaleSmallText && glyph > 0 && glyph < target) {
    double factor = std::min(OCRPreparationOptions::kMaxUpscale, target / glyph);
    double pixels = static_cast<double>(grey.width) * grey.height;
    factor = std::min(factor, std::sqrt(options.maxUpscaledPixels / pixels));
    if (factor >= 1.15) {
      grey = resizeGrey(grey, factor);
      prepared.scale *= factor;
      glyph = static_cast<int>(std::lround(glyph * factor));
    }
  }
  prepared.glyphHeight = glyph;
  prepared.image = std::move(grey);
  return prepared;
}

}  // namespace klipora::processing
