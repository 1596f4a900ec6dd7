// Turning detections into the redaction layers that cover them: each
// detection becomes one effect region of the document, all added as a single
// undo step ("Auto-Redact").
//
// Text of every kind is covered by a black bar: nothing of it survives, where
// a blur or coarse blocks can leave short strings guessable. Faces and people
// follow the HumanRedactionStyle: `blur` (a Gaussian blur at full strength,
// radius 32) or `solid` (a black bar).
//
// Thread rules: main thread, like the document.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "markup/markup_document.h"
#include "markup/redact/markup_auto_redactor.h"
#include "markup/redact/markup_image_detectors.h"

namespace klipora::markup {

enum class HumanRedactionStyle { blur, solid };

// The layer that covers one detection.
MarkupEffectRegion redactionLayer(const MarkupAutoRedactor::Detection& detection,
                                  HumanRedactionStyle humanStyle);

// Adds a layer per detection to `document` as one undo step named
// `actionName`, but none where the document has a layer of the same effect
// over the same frame already; nothing (and no undo step) when no layer is
// added. Returns the number of layers added.
size_t applyRedactions(MarkupDocument& document,
                       const std::vector<MarkupAutoRedactor::Detection>& detections,
                       HumanRedactionStyle humanStyle, std::string actionName = "Auto-Redact");

// The editor's auto-redact step: detects in `encodedImage` and covers what
// was found (applyRedactions, one undo step). On failure the document is left
// untouched and the error's errorDescription is the text to show.
MarkupAutoRedactor::Detections autoRedact(MarkupDocument& document,
                                          const MarkupAutoRedactor& redactor,
                                          std::string_view encodedImage,
                                          const MarkupAutoRedactor::DetectionOptions& options,
                                          HumanRedactionStyle humanStyle);

// Blurs each QR code (a Gaussian blur at full strength), as one undo step,
// skipping codes blurred so already.
size_t applyQRBlur(MarkupDocument& document,
                   const std::vector<MarkupQRDetector::Detection>& codes,
                   std::string actionName = "Blur QR Codes");

}  // namespace klipora::markup
