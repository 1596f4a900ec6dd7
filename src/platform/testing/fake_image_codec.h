// FakeImageCodec: an ImageCodec for unit tests over a made-up text format,
//   "FAKEIMG <width> <height> [orientation=<n>] [exif=<yyyy:MM:dd HH:mm:ss>] [fill=<0..255>]
//    [broken]\n…"
// Anything else is "not an image". "broken" makes the thumbnail and the pixel
// decode fail as undecodable pixels would; decoded pixels all have the value
// of fill (255 when absent). makeImage() writes the format. Thread-safe.
#pragma once

#include <atomic>
#include <string>

#include "platform/file_system.h"
#include "platform/image_codec.h"

namespace klipora::testing {

class FakeImageCodec final : public ImageCodec {
 public:
  static std::string makeImage(int width, int height, const std::string& extra = "");

  Result<ImageProperties> properties(std::string_view bytes) override;
  Result<std::string> makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                        int quality) override;
  // Read the file through `files` (NotFound without one).
  Result<ImageProperties> propertiesOfFile(const std::string& path) override;
  Result<std::string> makeJpegThumbnailOfFile(const std::string& path, int maxPixelSize,
                                              int quality) override;
  Result<PixelImage> decodePixels(std::string_view bytes,
                                  const PixelDecodeOptions& options) override;

  FileSystem* files = nullptr;
  std::atomic<int> thumbnailsMade{0};
  std::atomic<int> fileReads{0};  // calls of the *OfFile variants
  std::atomic<int> pixelDecodes{0};
};

}  // namespace klipora::testing
