// The image formats a screenshot may come in, told by the first bytes of the
// file: PNG, JPEG, TIFF, HEIF/AVIF, WebP, GIF, BMP and ICO. Codecs ask this
// before any image library sees the bytes, so a file in any other format (a
// PDF, an SVG, a script named .png) is refused at once instead of reaching
// the many loaders a general image library carries.
#pragma once

#include <optional>
#include <string_view>

namespace klipora {

// How many leading bytes identifyImageFormat needs at most.
inline constexpr size_t kImageSignatureBytes = 12;

// The format's short name ("png", "jpeg", "tiff", "heif", "webp", "gif",
// "bmp", "ico"), or nullopt when the bytes start no supported format.
std::optional<std::string_view> identifyImageFormat(std::string_view head);

// For error messages: "PNG, JPEG, TIFF, HEIF, AVIF, WebP, GIF, BMP or ICO".
inline constexpr char kReadableImageFormats[] = "PNG, JPEG, TIFF, HEIF, AVIF, WebP, GIF, BMP or ICO";

}  // namespace klipora
