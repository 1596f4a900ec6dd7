// ImageCodec: reading image facts and making thumbnails from encoded bytes.
// The real codec (VipsImageCodec, platform/linux) decodes PNG, JPEG, TIFF,
// HEIF, WebP, AVIF, GIF, BMP and ICO with libvips. Working from bytes that the
// caller already holds means an import reads each file from disk once.
//
// Thread rules: safe to call from any thread; calls may run concurrently.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/pixel_image.h"
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

struct PixelDecodeOptions {
  enum class Format { grey, rgba };
  Format format = Format::grey;
  // Images with more pixels are shrunk while decoding until they fit, so the
  // decoded buffer never exceeds this many pixels (0: no limit).
  int64_t maxPixels = 0;
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
  // Images larger than this are refused by makeJpegThumbnail: 2^28 pixels is
  // 16384 × 16384, far beyond any screen.
  static constexpr int64_t kMaxThumbnailSourcePixels = int64_t{1} << 28;

  // Decodes, applies the EXIF orientation, shrinks so that the longest side is
  // at most `maxPixelSize` (never enlarges), flattens transparency on white and
  // encodes as baseline JPEG at `quality` (1..100). Corruption when the pixel
  // data cannot be decoded or is truncated; InvalidArgument for an image of
  // more than kMaxThumbnailSourcePixels.
  virtual Result<std::string> makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                int quality) = 0;
  // The same two from an image file, for files too large to hold in memory:
  // the header is read alone, and the thumbnail is decoded shrinking as it
  // loads, so memory holds a few lines of pixels, not the file.
  virtual Result<ImageProperties> propertiesOfFile(const std::string& path) = 0;
  virtual Result<std::string> makeJpegThumbnailOfFile(const std::string& path, int maxPixelSize,
                                                      int quality) = 0;
  // Decodes the first frame or page to 8-bit pixels with the EXIF orientation
  // applied. Grey output is flattened on white (transparent areas read as
  // white paper); RGBA keeps the alpha channel. 16-bit, CMYK and palette
  // images are converted. InvalidArgument when the bytes are not an image,
  // Corruption when the pixel data cannot be decoded (truncated, damaged).
  virtual Result<PixelImage> decodePixels(std::string_view bytes,
                                          const PixelDecodeOptions& options) = 0;
};

}  // namespace klipora
