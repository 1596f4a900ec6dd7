// MarkupRenderer: flattens a markup document and its source image into the
// output image, in a fixed order:
//   1. the base image (handed in with colour adjustments, perspective and
//      background removal already applied; see markup_base_image.h)
//   2. a canvas of the source size with the base image drawn in
//   3. effect regions, in array order (they read the base pixels, so they lie
//      under every other layer whatever `layerOrder` says)
//   4. magnifiers, in array order
//   5. the layers by `layerOrder`, bottom to top: ink strokes, shapes, text
//      boxes, signature stamps, step badges, emoji stamps, cutout stickers,
//      rulers (effects, magnifiers, spotlights and watermarks have passes of
//      their own)
//   6. spotlights, all at once   7. watermark placements
//   8. crop   9. transform   10. canvas extension   11. window chrome
//   12. background frame
// Layer coordinates are the source image's pixels. A step that fails ends
// the render with no image; callers report it as "renderFailed". A layer
// whose asset is missing (a deleted signature or watermark, a sticker that
// does not decode) draws nothing.
//
// Thread rules: holds no state of its own; one render per thread at a time
// per asset source (the stores are main-thread objects).
#pragma once

#include "markup/markup_assets.h"
#include "markup/markup_document.h"
#include "markup/markup_document_snapshot.h"
#include "markup/render/emoji_stamp_rendering.h"
#include "markup/render/markup_image.h"
#include "platform/image_codec.h"
#include "platform/status.h"

namespace klipora::markup {

class MarkupRenderer {
 public:
  // `codec` decodes cutout stickers; `assets` (may be null: no signatures and
  // no watermarks) gives saved signatures and watermark images; `emoji` is
  // the glyph cache (the shared one when null).
  explicit MarkupRenderer(ImageCodec& codec, MarkupAssetSource* assets = nullptr,
                          EmojiStampRendering* emoji = nullptr);

  // The rendered image; an error (its message names the step) when a step
  // fails or the source image is empty.
  Result<MarkupImage> render(const MarkupDocumentSnapshot& document,
                             const MarkupImage& sourceImage) const;
  Result<MarkupImage> render(const MarkupDocument& document, const MarkupImage& sourceImage) const;

 private:
  void drawLayers(cairo_t* cr, const MarkupDocumentSnapshot& document) const;
  void drawWatermarks(cairo_t* cr, const MarkupDocumentSnapshot& document, int width,
                      int height) const;

  ImageCodec& codec_;
  MarkupAssetSource* assets_;
  EmojiStampRendering& emoji_;
};

}  // namespace klipora::markup
