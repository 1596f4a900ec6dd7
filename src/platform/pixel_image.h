// PixelImage: decoded 8-bit pixels in memory, rows top to bottom, no padding
// between rows. One channel is grey, three RGB, four RGBA (not premultiplied).
// A plain value; copy or move it between threads freely.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace klipora {

struct PixelImage {
  int width = 0;
  int height = 0;
  int channels = 1;
  std::vector<uint8_t> pixels;  // width * height * channels bytes

  static PixelImage filled(int width, int height, int channels, uint8_t value) {
    PixelImage image{width, height, channels, {}};
    image.pixels.assign(static_cast<size_t>(width) * height * channels, value);
    return image;
  }

  int bytesPerRow() const { return width * channels; }
  uint8_t* row(int y) { return pixels.data() + static_cast<size_t>(y) * bytesPerRow(); }
  const uint8_t* row(int y) const {
    return pixels.data() + static_cast<size_t>(y) * bytesPerRow();
  }
  bool empty() const { return width <= 0 || height <= 0; }
};

// Rec. 601 luma of an sRGB pixel, in integer arithmetic.
inline uint8_t Luma(uint8_t r, uint8_t g, uint8_t b) {
  return static_cast<uint8_t>((77 * r + 150 * g + 29 * b + 128) >> 8);
}

// A grey value with coverage `alpha` composited on white.
inline uint8_t OverWhite(uint8_t grey, uint8_t alpha) {
  return static_cast<uint8_t>((grey * alpha + 255 * (255 - alpha) + 127) / 255);
}

}  // namespace klipora
