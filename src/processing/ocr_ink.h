// Ink normalisation: redraws a screenshot as dark ink on white, whatever its
// colours. Screenshots mix polarities in one image (dark title bars on light
// windows, white text in blue chat bubbles, dark themes), and the recogniser
// reads only dark-on-light text well; inverting whole images fixes dark themes
// only.
//
// How: a closing (max then min over a square window wider than any stroke)
// removes dark strokes and keeps everything else, edges of panels included; an
// opening removes light strokes. Where the two agree nothing thin is drawn: the
// pixel is background. Every other pixel takes the value of the nearest
// background pixel as its local background, and its ink is how far it lies
// from that value, in either direction. Edges between flat areas stay white,
// which a smoothed background estimate cannot manage (it leaves dark bands
// along every panel edge).
//
// Pure functions over pixels; safe from any thread.
#pragma once

#include "platform/pixel_image.h"

namespace klipora::processing {

// Square window (odd side `window`) maximum and minimum, clamped at the
// borders. `grey` has one channel.
PixelImage maxFilter(const PixelImage& grey, int window);
PixelImage minFilter(const PixelImage& grey, int window);

// Dark ink on white from a grey image of any polarity. `strokeWindow` (odd,
// at least 3) must exceed the widest stroke of the text: about three quarters
// of the glyph height.
PixelImage normalizeInk(const PixelImage& grey, int strokeWindow);

// The stroke window for text whose glyphs are `glyphHeight` pixels high.
int strokeWindowFor(int glyphHeight);

}  // namespace klipora::processing
