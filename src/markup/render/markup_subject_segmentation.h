// Foreground subjects, found with OpenCV's GrabCut on a copy of at most
// kWorkingSide pixels a side, seeded from the border (all of the image, or
// the selection) as background; the mask is enlarged back with soft edges.
//
// MarkupBackgroundRemover makes the document's background removal: the base
// image with its background transparent, encoded as PNG.
// MarkupCutoutExtractor lifts the subject inside a selection as the PNG of a
// new cutout sticker, the size of the selection.
//
// Thread rules: pure functions; safe from any thread. They take a few
// hundred milliseconds, so they belong off the main thread.
#pragma once

#include <string>

#include <tl/expected.hpp>

#include "markup/markup_settings.h"
#include "markup/render/markup_image.h"
#include "platform/image_codec.h"

namespace klipora::markup {

inline constexpr int kWorkingSide = 480;

class MarkupBackgroundRemover {
 public:
  enum class RemovalError { unreadableImage, noForeground, encodingFailed, visionFailed };
  struct Failure {
    RemovalError error;
    std::string message;  // visionFailed only
    // "Could not read image pixels.", "No subject found to keep.", "Could not
    // encode the masked image.", "Background removal failed: <message>".
    std::string errorDescription() const;
  };

  // `enabled` with the masked image's PNG.
  static tl::expected<MarkupBackgroundRemoval, Failure> removeBackground(ImageCodec& codec,
                                                                         const MarkupImage& image);
};

class MarkupCutoutExtractor {
 public:
  enum class ExtractionError {
    invalidDimensions,  // "Invalid image dimensions"
    selectionTooSmall,  // "Selection too small"
    cropFailed,         // "Unable to crop selection"
    noForeground,       // "No subject found to keep."
    encodingFailed,     // "Could not encode cutout"
    visionFailed,       // the message
  };
  struct Failure {
    ExtractionError error;
    std::string message;
    std::string errorDescription() const;
  };
  // Selections narrower or lower than this are refused.
  static constexpr double kMinimumSelectionSide = 16;

  // The PNG of the subject inside `selection` (image pixels), transparent
  // elsewhere; the sticker is the selection's size.
  static tl::expected<ImageBytes, Failure> extract(ImageCodec& codec, const MarkupImage& image,
                                                   const Rect& selection);
};

}  // namespace klipora::markup
