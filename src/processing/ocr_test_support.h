// Drawing helpers for the text-recognition tests: pages of flat grey with
// glyph-sized marks, so that preparation and layout see text-like shapes.
#pragma once

#include "platform/ocr_engine.h"
#include "platform/pixel_image.h"

namespace klipora::processing::testing {

inline PixelImage Page(int width, int height, uint8_t paper = 255) {
  return PixelImage::filled(width, height, 1, paper);
}

inline void Fill(PixelImage& image, const OcrBox& box, uint8_t value = 0) {
  for (int y = box.top; y < box.bottom; ++y) {
    for (int x = box.left; x < box.right; ++x) image.row(y)[x] = value;
  }
}

// A row of `count` glyph-like marks (2-pixel strokes forming a box outline,
// `height` high, 0.6 × height wide, 0.3 × height apart) from (left, top).
// Returns the row's box.
inline OcrBox Word(PixelImage& image, int left, int top, int count, int height = 12,
                   uint8_t ink = 0) {
  const int width = height * 6 / 10, gap = height * 3 / 10;
  int x = left;
  for (int i = 0; i < count; ++i, x += width + gap) {
    Fill(image, {x, top, x + 2, top + height}, ink);
    Fill(image, {x + width - 2, top, x + width, top + height}, ink);
    Fill(image, {x, top, x + width, top + 2}, ink);
    Fill(image, {x, top + height - 2, x + width, top + height}, ink);
  }
  return {left, top, x - gap, top + height};
}

}  // namespace klipora::processing::testing
