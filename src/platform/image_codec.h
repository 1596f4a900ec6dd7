// ImageCodec: reading image facts and making thumbnails from encoded bytes.
// The real codec (VipsImageCodec, platform/linux) decodes PNG, JPEG, TIFF,
// HEIF, WebP, AVIF, GIF, BMP and ICO with libvips. Working from bytes that the
// caller already holds means an import reads each file from disk once.
//
// Thread rules: safe to call from any thread; calls may run concurrently.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace klipora {

struct ImageProperties {
  int width = 0;   // stored pixel width, before orientation is applied
  int height = 0;  // stored pixel height
  int orientation = 1;  // EXIF orientation 1..8 (1 when absent)
  // Raw EXIF/TIFF date texts as stored ("yyyy:MM:dd HH:mm:ss"), when present.
  std::optional<std::string> exifDateTimeOriginal;
  std::optional<std::string> exifDateTimeDigitized;
  std::optional<std::string> tiffDateTime;
  std::string format;  // loader's short name: "png", "jpeg", "webp", …
};

class ImageCodec {
 public:
  ImageCodec() = default;
  ImageCodec(const ImageCodec&) = delete;
  ImageCodec& operator=(const ImageCodec&) = delete;
  virtual ~ImageCodec() = default;

  // Reads the header only. InvalidArgument when the bytes are not an image
  // any loader recognises.
  virtual Result<ImageProperties> properties(std::string_view bytes) = 0;
  // Decodes, applies the EXIF orientation, shrinks so that the longest side is
  // at most `maxPixelSize` (never enlarges), flattens transparency on white and
  // encodes as baseline JPEG at `quality` (1..100). Corruption when the pixel
  // data cannot be decoded.
  virtual Result<std::string> makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                int quality) = 0;
};

}  // namespace klipora
