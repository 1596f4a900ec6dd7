// Feature prints: a perceptual hash of a screenshot that survives
// re-encoding and small scaling, compared by Hamming distance, and the
// category vote of a screenshot's nearest neighbours among the library's
// prints.
//
// A print is a version byte followed by the hash bits. Version 1 holds 256
// bits from an area-averaged grey image: horizontal and vertical brightness
// gradients on 9x8 and 8x9 grids (the layout), and an 8x8 grid compared with
// mid-grey and with its own median (light or dark, where the content sits).
// Prints of different versions never match, so a better print can replace
// this one while old items are reprinted. Pure functions; safe from any
// thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "library/screenshot_category.h"
#include "library/sql_value.h"
#include "platform/pixel_image.h"

namespace klipora::intelligence {

using library::ScreenshotCategory;

inline constexpr uint8_t kFeaturePrintVersion = 1;
inline constexpr int kFeaturePrintBits = 256;
// The distance between prints that cannot be compared (another version or
// length, or no print at all): farther than any two comparable prints.
inline constexpr int kIncomparablePrintDistance = 1 << 20;

// Nullopt for an empty image or one that is not grey, RGB or RGBA.
std::optional<library::Bytes> makeFeaturePrint(const PixelImage& image);

// The number of differing bits (0...kFeaturePrintBits), or
// kIncomparablePrintDistance.
int featurePrintDistance(const library::Bytes& a, const library::Bytes& b);

struct VisualReference {
  library::Bytes print;
  ScreenshotCategory category;
};

// Neighbours are the kVisualNeighbours nearest filed references (uncategorized
// ones say nothing and are passed over) within kVisualNeighbourCutOff bits.
// Each weighs 1 - distance / (cut-off + 1); a category's vote is its
// neighbours' weight over the total weight, or over 1 when the total is
// smaller, so that a single distant neighbour is a weak vote. Empty when no
// reference is close enough.
inline constexpr int kVisualNeighbours = 7;
inline constexpr int kVisualNeighbourCutOff = 48;
std::map<ScreenshotCategory, double> visualVotes(const library::Bytes& print,
                                                 std::span<const VisualReference> references);

}  // namespace klipora::intelligence
