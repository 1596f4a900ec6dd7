// Gaussian blur of a rectangle of pixels in place, on libvips. Works on the
// pixels inside the rectangle only: nothing outside it is read or written,
// and its edges repeat outward, so a blurred region does not darken at its
// border.
//
// Thread rules: safe from any thread (libvips is initialised once).
#pragma once

#include <cstdint>

namespace klipora::markup {

// Blurs `width` × `height` pixels of `bands` 8-bit channels starting at
// `data`, rows `stride` bytes apart, with standard deviation `sigma`. False
// (pixels untouched) when libvips fails; a sigma below 0.1 changes nothing.
bool GaussianBlurPixels(uint8_t* data, int stride, int width, int height, int bands,
                        double sigma);

}  // namespace klipora::markup
