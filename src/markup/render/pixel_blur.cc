#include "markup/render/pixel_blur.h"

#include <vips/vips.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace klipora::markup {
namespace {

void EnsureVips() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (VIPS_INIT("klipora") != 0) vips_error_clear();
  });
}

struct Unref {
  void operator()(VipsImage* image) const {
    if (image) g_object_unref(image);
  }
};

}  // namespace

bool GaussianBlurPixels(uint8_t* data, int stride, int width, int height, int bands,
                        double sigma) {
  if (width < 1 || height < 1 || sigma < 0.1) return true;
  EnsureVips();
  const size_t rowBytes = static_cast<size_t>(width) * bands;
  std::vector<uint8_t> packed(rowBytes * height);
  for (int y = 0; y < height; ++y) {
    std::memcpy(packed.data() + y * rowBytes, data + static_cast<size_t>(y) * stride, rowBytes);
  }
  std::unique_ptr<VipsImage, Unref> in(vips_image_new_from_memory(
      packed.data(), packed.size(), width, height, bands, VIPS_FORMAT_UCHAR));
  if (!in) {
    vips_error_clear();
    return false;
  }
  VipsImage* blurred = nullptr;
  if (vips_gaussblur(in.get(), &blurred, sigma, "precision", VIPS_PRECISION_INTEGER, nullptr) !=
      0) {
    vips_error_clear();
    return false;
  }
  std::unique_ptr<VipsImage, Unref> out(blurred);
  size_t size = 0;
  void* bytes = vips_image_write_to_memory(out.get(), &size);
  if (!bytes) {
    vips_error_clear();
    return false;
  }
  bool fits = size == packed.size() && vips_image_get_width(out.get()) == width;
  if (fits) {
    for (int y = 0; y < height; ++y) {
      std::memcpy(data + static_cast<size_t>(y) * stride,
                  static_cast<uint8_t*>(bytes) + y * rowBytes, rowBytes);
    }
  }
  g_free(bytes);
  return fits;
}

}  // namespace klipora::markup
