// Real encoded images for integration tests, made with libvips at test time
// (nothing is committed). Header-only so it stays out of the product.
#pragma once

#include <vips/vips.h>

#include <string>

namespace klipora::testing {

struct TestImageOptions {
  int width = 64;
  int height = 48;
  int bands = 3;         // 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA
  bool sixteenBit = false;
  int orientation = 0;   // EXIF orientation to record; 0 for none
  std::string exifDateTimeOriginal;
  std::string format = ".png";  // ".png", ".jpg", ".webp", ".tif", ".gif"
};

// Options for a `width` × `height` image in `format`; tweak the rest by field.
inline TestImageOptions imageOptions(int width, int height, std::string format = ".png") {
  TestImageOptions options;
  options.width = width;
  options.height = height;
  options.format = std::move(format);
  return options;
}

// A gradient image encoded in `options.format`; empty on failure.
inline std::string makeTestImage(const TestImageOptions& options) {
  static const bool initialised = VIPS_INIT("klipora-tests") == 0;
  (void)initialised;
  VipsImage* x = nullptr;
  if (vips_xyz(&x, options.width, options.height, nullptr)) return {};
  VipsImage* band = nullptr;
  vips_extract_band(x, &band, 0, nullptr);  // a horizontal ramp
  g_object_unref(x);
  VipsImage* scaled = nullptr;
  vips_linear1(band, &scaled, 255.0 / (options.width > 1 ? options.width - 1 : 1), 0, nullptr);
  g_object_unref(band);
  VipsImage* bands = nullptr;
  if (options.bands > 1) {
    VipsImage* copies[4] = {scaled, scaled, scaled, scaled};
    vips_bandjoin(copies, &bands, options.bands, nullptr);
    g_object_unref(scaled);
  } else {
    bands = scaled;
  }
  VipsImage* cast = nullptr;
  if (options.sixteenBit) {
    VipsImage* wide = nullptr;
    vips_linear1(bands, &wide, 257, 0, nullptr);
    vips_cast(wide, &cast, VIPS_FORMAT_USHORT, nullptr);
    g_object_unref(wide);
  } else {
    vips_cast(bands, &cast, VIPS_FORMAT_UCHAR, nullptr);
  }
  g_object_unref(bands);
  VipsImage* image = nullptr;
  vips_copy(cast, &image, "interpretation",
            options.bands >= 3 ? (options.sixteenBit ? VIPS_INTERPRETATION_RGB16
                                                     : VIPS_INTERPRETATION_sRGB)
                               : (options.sixteenBit ? VIPS_INTERPRETATION_GREY16
                                                     : VIPS_INTERPRETATION_B_W),
            nullptr);
  g_object_unref(cast);
  if (options.orientation) vips_image_set_int(image, "orientation", options.orientation);
  if (!options.exifDateTimeOriginal.empty()) {
    vips_image_set_string(image, "exif-ifd2-DateTimeOriginal",
                          options.exifDateTimeOriginal.c_str());
  }
  void* buffer = nullptr;
  size_t length = 0;
  int rc = vips_image_write_to_buffer(image, options.format.c_str(), &buffer, &length, nullptr);
  g_object_unref(image);
  if (rc != 0) {
    vips_error_clear();
    return {};
  }
  std::string bytes(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return bytes;
}

// A PNG that declares `width` × `height` pixels but carries almost no data:
// the kind of file that would take gigabytes if a decoder believed it.
inline std::string makeDeclaredHugePng(uint32_t width, uint32_t height) {
  std::string png = makeTestImage({});
  // IHDR data starts after the 8-byte signature, 4-byte length and "IHDR".
  auto put = [&](size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) png[at + i] = static_cast<char>((v >> (24 - 8 * i)) & 0xFF);
  };
  put(16, width);
  put(20, height);
  // Fix the IHDR CRC so loaders read on and fail only at the pixel data.
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 12; i < 12 + 4 + 13; ++i) {
    crc ^= static_cast<uint8_t>(png[i]);
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  put(29, crc ^ 0xFFFFFFFFu);
  return png;
}

}  // namespace klipora::testing
