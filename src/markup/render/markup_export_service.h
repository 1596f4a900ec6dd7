// MarkupExportService: a markup snapshot rendered over an encoded image and
// encoded as PNG, the form in which an edit is written back to the library
// or exported. The image is decoded with its EXIF orientation applied, so
// layer coordinates are those of the picture as seen.
//
// Thread rules: as MarkupRenderer (one render at a time per asset source).
#pragma once

#include <string>
#include <string_view>

#include "markup/markup_assets.h"
#include "markup/markup_document_snapshot.h"
#include "markup/render/markup_renderer.h"
#include "platform/image_codec.h"
#include "platform/status.h"

namespace klipora::markup {

class MarkupExportService {
 public:
  // The export errors, as their user-facing names.
  static constexpr char kRenderFailed[] = "renderFailed";

  explicit MarkupExportService(ImageCodec& codec, MarkupAssetSource* assets = nullptr)
      : codec_(codec), renderer_(codec, assets) {}

  // The source decoded (InvalidArgument or Corruption naming the cause when
  // it is not a readable image).
  Result<MarkupImage> decode(std::string_view imageBytes);
  // The rendered image, drawn on the base image the document's background
  // removal, colour adjustments and perspective make of `source`: an error
  // whose message begins "renderFailed" when a step fails.
  Result<MarkupImage> render(const MarkupDocumentSnapshot& snapshot, const MarkupImage& source);
  // The rendered image as PNG bytes.
  Result<std::string> renderPng(const MarkupDocumentSnapshot& snapshot, const MarkupImage& source);
  Result<std::string> encodePng(const MarkupImage& image);

 private:
  ImageCodec& codec_;
  MarkupRenderer renderer_;
};

}  // namespace klipora::markup
