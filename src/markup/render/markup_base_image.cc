#include "markup/render/markup_base_image.h"

#include "markup/render/markup_color_adjustment_pipeline.h"
#include "markup/render/markup_perspective_baker.h"
#include "platform/log.h"

namespace klipora::markup {

Result<MarkupImage> prepareBaseImage(ImageCodec& codec, const MarkupDocumentSnapshot& document,
                                     const MarkupImage& source) {
  std::optional<MarkupImage> base;
  if (document.backgroundRemoval && document.backgroundRemoval->enabled &&
      document.backgroundRemoval->maskedImageData) {
    auto pixels = codec.decodePixels(document.backgroundRemoval->maskedImageData->data,
                                     {PixelDecodeOptions::Format::rgba, 0});
    if (pixels) base = MarkupImage::fromPixels(*pixels);
    if (!base) log::warning("Markup", "the stored background removal does not decode; drawing on the source");
  }
  if (!base) base = source.clone();
  if (!base) return Err(Status::Internal("renderFailed: the base image could not be made"));
  if (document.colorAdjustments && !document.colorAdjustments->isIdentity()) {
    base = MarkupColorAdjustmentPipeline::apply(*base, *document.colorAdjustments);
    if (!base) return Err(Status::Internal("renderFailed: the colour adjustment could not be made"));
  }
  if (document.perspective) {
    base = MarkupPerspectiveBaker::apply(
        *base, *document.perspective, {document.sourceImageWidth, document.sourceImageHeight});
    if (!base) return Err(Status::Internal("renderFailed: the perspective correction could not be made"));
  }
  return std::move(*base);
}

}  // namespace klipora::markup
