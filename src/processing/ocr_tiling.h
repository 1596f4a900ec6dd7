// Splitting screenshots too large for one recognition (several monitors side
// by side) into tiles the recogniser handles within bounded memory. Cuts are
// placed on the quietest column or row near each even split, so that they
// fall between windows or in margins rather than through lines of text.
//
// Pure functions over pixels; safe from any thread.
#pragma once

#include <vector>

#include "platform/ocr_engine.h"
#include "platform/pixel_image.h"

namespace klipora::processing {

// Tiles covering `grey` without overlap, in reading order (rows of tiles top
// to bottom, each left to right), none wider or taller than `maxSide`. One
// tile, the whole image, when it already fits.
std::vector<OcrBox> planTiles(const PixelImage& grey, int maxSide);

// A copy of the pixels inside `box`.
PixelImage cropGrey(const PixelImage& grey, const OcrBox& box);

}  // namespace klipora::processing
