// The base image a document is drawn on (step 1 of the render): the source
// with the document's background removal (its stored masked image), colour
// adjustments (when not the identity) and perspective correction applied, in
// that order.
//
// Thread rules: pure function; safe from any thread.
#pragma once

#include "markup/markup_document_snapshot.h"
#include "markup/render/markup_image.h"
#include "platform/image_codec.h"
#include "platform/status.h"

namespace klipora::markup {

// Fails (with "renderFailed: …") when an operation cannot make its image. A
// stored masked image that does not decode is passed over: the source is
// used as it is.
Result<MarkupImage> prepareBaseImage(ImageCodec& codec, const MarkupDocumentSnapshot& document,
                                     const MarkupImage& source);

}  // namespace klipora::markup
