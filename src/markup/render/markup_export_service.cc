#include "markup/render/markup_export_service.h"

#include "markup/render/markup_base_image.h"

namespace klipora::markup {

Result<MarkupImage> MarkupExportService::decode(std::string_view imageBytes) {
  ASSIGN_OR_RETURN(PixelImage pixels,
                   codec_.decodePixels(imageBytes, {PixelDecodeOptions::Format::rgba, 0}));
  auto image = MarkupImage::fromPixels(pixels);
  if (!image) {
    return Err(Status::InvalidArgument("the image is too large to draw on (" +
                                       std::to_string(pixels.width) + "×" +
                                       std::to_string(pixels.height) + ")"));
  }
  return std::move(*image);
}

Result<MarkupImage> MarkupExportService::render(const MarkupDocumentSnapshot& snapshot,
                                                const MarkupImage& source) {
  ASSIGN_OR_RETURN(MarkupImage base, prepareBaseImage(codec_, snapshot, source));
  return renderer_.render(snapshot, base);
}

Result<std::string> MarkupExportService::encodePng(const MarkupImage& image) {
  return codec_.encodePng(image.toPixels());
}

Result<std::string> MarkupExportService::renderPng(const MarkupDocumentSnapshot& snapshot,
                                                   const MarkupImage& source) {
  ASSIGN_OR_RETURN(MarkupImage rendered, render(snapshot, source));
  return encodePng(rendered);
}

}  // namespace klipora::markup
