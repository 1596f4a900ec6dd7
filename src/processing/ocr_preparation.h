// Preparing a screenshot for the recogniser, which reads dark text on a light
// background at a comfortable text height best. Screenshots break both rules:
// themes and panels put light text on dark or coloured backgrounds, and 1×
// screens draw body text only 8 to 12 pixels high. The image arrives as grey
// (the decoder's one colour reduction); preparation redraws it as dark ink on
// white (ocr_ink.h) and enlarges small text. Which steps run is set by
// OCRPreparationOptions; the defaults are what measured best on realistic
// screenshots (bench/ocr), the others stay switchable so the comparison can
// be repeated.
//
// Pure functions over pixels; safe from any thread.
#pragma once

#include <cstdint>

#include "platform/pixel_image.h"

namespace klipora::processing {

struct OCRPreparationOptions {
  // Decode to grey once (else colour goes to the recogniser as it is, and the
  // other steps, which work on grey, are skipped).
  bool greyscale = true;
  // Redraw every mark as dark ink on white by its contrast with the local
  // background (see ocr_ink.h). Covers dark themes and inverted panels.
  bool normalizeInk = true;
  // Without ink normalisation: invert images whose background is mostly dark.
  bool invertDarkBackground = true;
  // The recogniser reads text of a middling size best for the time it takes:
  // smaller text loses letters, larger text (2× screens) costs more and reads
  // no better. Text whose glyphs are below targetGlyphHeight pixels is
  // enlarged to reach it (by at most kMaxUpscale); text above
  // downscaleAboveGlyphHeight is reduced to downscaleGlyphHeight.
  bool upscaleSmallText = true;
  int targetGlyphHeight = 12;
  static constexpr double kMaxUpscale = 3.0;
  bool downscaleLargeText = true;
  int downscaleAboveGlyphHeight = 17;
  int downscaleGlyphHeight = 14;
  // An enlarged image never exceeds this many pixels.
  int64_t maxUpscaledPixels = 16'000'000;
};

struct PreparedImage {
  PixelImage image;  // grey
  double scale = 1;  // prepared pixels per source pixel
  // Median glyph height in prepared pixels; 0 when no text-like shapes were
  // found.
  int glyphHeight = 0;
};

// `grey` must have one channel, unless options.greyscale is off: then the
// image is handed on untouched. Moves it into the result when nothing changes.
PreparedImage prepareForRecognition(PixelImage grey, const OCRPreparationOptions& options);

// One channel from 1, 3 or 4: luma, with transparent areas read as white.
PixelImage toGrey(const PixelImage& image);
// True when most of the image is darker than mid-grey.
bool hasDarkBackground(const PixelImage& grey);
// Median height in pixels of the glyph-sized shapes that stand out from their
// local background, whatever their polarity; 0 when there are none.
int estimateGlyphHeight(const PixelImage& grey);
void invertInPlace(PixelImage& grey);
// Resampling of a grey image by `factor` (> 0): bilinear when enlarging, by
// area (each output pixel the mean of the source area it covers) when
// reducing.
PixelImage resizeGrey(const PixelImage& grey, double factor);

}  // namespace klipora::processing
