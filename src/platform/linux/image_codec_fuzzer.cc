// Feeds arbitrary bytes to the image codec as an imported file would reach
// it: the header, the thumbnail and the pixels for text recognition. Each
// must answer with an image or an error; none may crash, and what decodes
// must hold the pixels its size promises.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/vips_image_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static klipora::VipsImageCodec codec;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto properties = codec.properties(bytes);
  if (!properties) return 0;
  if (properties->width <= 0 || properties->height <= 0) __builtin_trap();
  // A header may declare up to the codec's limit of 2^28 pixels, which takes
  // seconds to decode: real, but no finding. Past 2^22 only the header counts.
  if (int64_t{properties->width} * properties->height > (int64_t{1} << 22)) return 0;
  // Bounded like the import: a bomb of a header is refused, not decoded.
  (void)codec.makeJpegThumbnail(bytes, 64, 70);
  auto pixels = codec.decodePixels(
      bytes, {.format = klipora::PixelDecodeOptions::Format::rgba, .maxPixels = 1 << 16});
  if (pixels) {
    if (pixels->width * pixels->height > (1 << 16)) __builtin_trap();
    if (pixels->pixels.size() < static_cast<size_t>(pixels->bytesPerRow()) * pixels->height) {
      __builtin_trap();
    }
  }
  return 0;
}
