// VipsImageCodec: ImageCodec on libvips. Initialises libvips once per process
// and turns its operation cache off (an import never repeats an operation).
// Safe from any thread.
#pragma once

#include "platform/image_codec.h"

namespace klipora {

class VipsImageCodec final : public ImageCodec {
 public:
  VipsImageCodec();
  Result<ImageProperties> properties(std::string_view bytes) override;
  Result<std::string> makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                        int quality) override;
  Result<ImageProperties> propertiesOfFile(const std::string& path) override;
  Result<std::string> makeJpegThumbnailOfFile(const std::string& path, int maxPixelSize,
                                              int quality) override;
  Result<PixelImage> decodePixels(std::string_view bytes,
                                  const PixelDecodeOptions& options) override;
};

}  // namespace klipora
