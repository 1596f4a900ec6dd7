// Text shapes on a prepared page, for the recovery pass of text recognition.
// The recogniser's page layout analysis drops text it takes for noise: single
// digits in a column, small labels beside pictures, prices set apart from
// their decimals. After it has read the page, the ink shapes that none of its
// words cover are grouped into lines, read one line at a time, and put back
// among the recogniser's lines where they stand on the page.
//
// Pure functions; safe from any thread.
#pragma once

#include <vector>

#include "platform/ocr_engine.h"
#include "platform/pixel_image.h"

namespace klipora::processing {

// Pixels of a prepared (dark on white) page darker than this are ink.
inline constexpr uint8_t kInkThreshold = 180;

// Bounding boxes of the 8-connected groups of nonzero pixels of `mask` (one
// channel), in no particular order.
std::vector<OcrBox> connectedShapes(const PixelImage& mask);

// Median height of the glyph-sized shapes (not dots, rules or pictures);
// 0 when there are fewer than three.
int medianGlyphHeight(const std::vector<OcrBox>& shapes);

// The ink shapes of `ink` (one channel) that could be text: no rules (long and thin), none
// much smaller or larger than `glyphHeight`.
std::vector<OcrBox> textShapes(const PixelImage& ink, int glyphHeight);

// The shapes whose centre lies in none of `covered`.
std::vector<OcrBox> uncoveredShapes(const std::vector<OcrBox>& shapes,
                                    const std::vector<OcrBox>& covered);

// Groups shapes into lines: shapes side by side on one row with gaps of less
// than about a glyph height join one line. Each line's box is padded by a
// third of its height and clipped to `width` × `height`. Sorted top to
// bottom, then left to right.
std::vector<OcrBox> groupIntoLines(std::vector<OcrBox> shapes, int glyphHeight, int width,
                                   int height);

// Puts `recovered` lines among `lines` (the recogniser's reading order). A
// recovered line on the same row as a line, just before or after it, joins
// that line ("1" before ".29" reads "1.29"); any other goes in before the
// first line that lies wholly below it.
void mergeRecoveredLines(std::vector<OcrObservation>& lines, std::vector<OcrObservation> recovered);

}  // namespace klipora::processing
