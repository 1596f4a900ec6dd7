#include "platform/image_format.h"

namespace klipora {
namespace {

bool startsWith(std::string_view head, std::string_view prefix, size_t at = 0) {
  return head.size() >= at + prefix.size() && head.substr(at, prefix.size()) == prefix;
}

}  // namespace

std::optional<std::string_view> identifyImageFormat(std::string_view head) {
  using namespace std::string_view_literals;
  if (startsWith(head, "\x89PNG\r\n\x1a\n"sv)) return "png";
  if (startsWith(head, "\xff\xd8\xff"sv)) return "jpeg";
  if (startsWith(head, "II*\0"sv) || startsWith(head, "MM\0*"sv) || startsWith(head, "II+\0"sv) ||
      startsWith(head, "MM\0+"sv)) {
    return "tiff";
  }
  if (startsWith(head, "GIF87a"sv) || startsWith(head, "GIF89a"sv)) return "gif";
  if (startsWith(head, "RIFF"sv) && startsWith(head, "WEBP"sv, 8)) return "webp";
  // An ISO media file: a box size, then "ftyp" and the brand.
  if (startsWith(head, "ftyp"sv, 4)) return "heif";
  if (startsWith(head, "BM"sv)) return "bmp";
  if (startsWith(head, "\0\0\1\0"sv) || startsWith(head, "\0\0\2\0"sv)) return "ico";
  return std::nullopt;
}

}  // namespace klipora
