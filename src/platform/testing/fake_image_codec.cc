#include "platform/testing/fake_image_codec.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace klipora::testing {

std::string FakeImageCodec::makeImage(int width, int height, const std::string& extra) {
  std::string out = "FAKEIMG " + std::to_string(width) + " " + std::to_string(height);
  if (!extra.empty()) out += " " + extra;
  out += "\npixels";
  return out;
}

Result<ImageProperties> FakeImageCodec::properties(std::string_view bytes) {
  if (bytes.substr(0, 8) != "FAKEIMG ") {
    return Err(Status::InvalidArgument("not an image in a format Klipora reads"));
  }
  std::string header(bytes.substr(0, bytes.find('\n')));
  ImageProperties p;
  p.format = "fake";
  std::istringstream in(header.substr(8));
  if (!(in >> p.width >> p.height)) return Err(Status::InvalidArgument("bad fake header"));
  size_t at = header.find("orientation=");
  if (at != std::string::npos) p.orientation = std::stoi(header.substr(at + 12));
  at = header.find("exif=");
  if (at != std::string::npos) p.exifDateTimeOriginal = header.substr(at + 5, 19);
  return p;
}

Result<std::string> FakeImageCodec::makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                      int quality) {
  auto p = properties(bytes);
  if (!p) return Err(p.error());
  if (std::string(bytes.substr(0, bytes.find('\n'))).find("broken") != std::string::npos) {
    return Err(Status::Corruption("pixel data is truncated"));
  }
  bool rotated = p->orientation >= 5;
  int w = rotated ? p->height : p->width, h = rotated ? p->width : p->height;
  double scale = std::min(1.0, static_cast<double>(maxPixelSize) / std::max(w, h));
  ++thumbnailsMade;
  return "FAKEJPEG " + std::to_string(static_cast<int>(w * scale + 0.5)) + " " +
         std::to_string(static_cast<int>(h * scale + 0.5)) + " q" + std::to_string(quality);
}

Result<ImageProperties> FakeImageCodec::propertiesOfFile(const std::string& path) {
  if (!files) return Err(Status::NotFound("no file system for " + path));
  ++fileReads;
  ASSIGN_OR_RETURN(std::string bytes, files->readFile(path));
  return properties(bytes);
}

Result<std::string> FakeImageCodec::makeJpegThumbnailOfFile(const std::string& path,
                                                            int maxPixelSize, int quality) {
  if (!files) return Err(Status::NotFound("no file system for " + path));
  ++fileReads;
  ASSIGN_OR_RETURN(std::string bytes, files->readFile(path));
  return makeJpegThumbnail(bytes, maxPixelSize, quality);
}

Result<PixelImage> FakeImageCodec::decodePixels(std::string_view bytes,
                                                const PixelDecodeOptions& options) {
  auto p = properties(bytes);
  if (!p) return Err(p.error());
  std::string header(bytes.substr(0, bytes.find('\n')));
  if (header.find("broken") != std::string::npos) {
    return Err(Status::Corruption("pixel data is truncated"));
  }
  int fill = 255;
  size_t at = header.find("fill=");
  if (at != std::string::npos) fill = std::clamp(std::stoi(header.substr(at + 5)), 0, 255);
  bool rotated = p->orientation >= 5;
  int64_t w = rotated ? p->height : p->width, h = rotated ? p->width : p->height;
  if (options.maxPixels > 0 && w * h > options.maxPixels) {
    double scale = std::sqrt(static_cast<double>(options.maxPixels) / (w * h));
    w = std::max<int64_t>(1, static_cast<int64_t>(w * scale));
    h = std::max<int64_t>(1, static_cast<int64_t>(h * scale));
  }
  ++pixelDecodes;
  bool grey = options.format == PixelDecodeOptions::Format::grey;
  PixelImage image = PixelImage::filled(static_cast<int>(w), static_cast<int>(h), grey ? 1 : 4,
                                        static_cast<uint8_t>(fill));
  if (!grey) {
    for (size_t i = 3; i < image.pixels.size(); i += 4) image.pixels[i] = 255;
  }
  return image;
}

Result<std::string> FakeImageCodec::encodePng(const PixelImage& image) {
  if (image.empty() ||
      image.pixels.size() != static_cast<size_t>(image.width) * image.height * image.channels) {
    return Err(Status::InvalidArgument("no pixels to encode"));
  }
  ++pngsEncoded;
  // The fill of a uniform image survives the round trip; others read back white.
  return makeImage(image.width, image.height,
                   "fill=" + std::to_string(image.pixels.empty() ? 255 : image.pixels[0]));
}

}  // namespace klipora::testing
