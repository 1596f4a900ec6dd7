#include "markup/render/pixel_blur.h"

#include <vips/vips.h>

#include <algorithm>
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

// Blurs `in` into a new image of the same size. A wide Gaussian is made on a
// copy shrunk by box averages (which only removes detail the blur would
// remove anyway), then brought back with linear interpolation: a 1000×300
// region at sigma 17 costs a few milliseconds instead of some seventy.
VipsImage* Blur(VipsImage* in, double sigma) {
  const int width = vips_image_get_width(in), height = vips_image_get_height(in);
  const int factor = std::clamp(static_cast<int>(sigma / 3), 1, std::min(width, height) / 4 + 1);
  if (factor <= 1) {
    VipsImage* out = nullptr;
    if (vips_gaussblur(in, &out, sigma, "precision", VIPS_PRECISION_INTEGER, nullptr) != 0) {
      return nullptr;
    }
    return out;
  }
  VipsImage* small = nullptr;
  if (vips_shrink(in, &small, factor, factor, nullptr) != 0) return nullptr;
  std::unique_ptr<VipsImage, Unref> shrunk(small);
  VipsImage* blurred = nullptr;
  if (vips_gaussblur(shrunk.get(), &blurred, sigma / factor, "precision",
                     VIPS_PRECISION_INTEGER, nullptr) != 0) {
    return nullptr;
  }
  std::unique_ptr<VipsImage, Unref> soft(blurred);
  const double sx = static_cast<double>(width) / vips_image_get_width(soft.get());
  const double sy = static_cast<double>(height) / vips_image_get_height(soft.get());
  VipsImage* grown = nullptr;
  if (vips_resize(soft.get(), &grown, sx, "vscale", sy, "kernel", VIPS_KERNEL_LINEAR, nullptr) !=
      0) {
    return nullptr;
  }
  std::unique_ptr<VipsImage, Unref> large(grown);
  // Rounding may leave the result a pixel off; the edge repeats to fit.
  VipsImage* fitted = nullptr;
  if (vips_embed(large.get(), &fitted, 0, 0, width, height, "extend", VIPS_EXTEND_COPY, nullptr) !=
      0) {
    return nullptr;
  }
  return fitted;
}

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
  std::unique_ptr<VipsImage, Unref> out(Blur(in.get(), sigma));
  if (!out) {
    vips_error_clear();
    return false;
  }
  VipsImage* cast = nullptr;
  if (vips_image_get_format(out.get()) != VIPS_FORMAT_UCHAR) {
    if (vips_cast(out.get(), &cast, VIPS_FORMAT_UCHAR, nullptr) != 0) {
      vips_error_clear();
      return false;
    }
    out.reset(cast);
  }
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

SoftMask::SoftMask(int x, int y, int width, int height, double sigma)
    : x_(x), y_(y), k_(std::max(1, static_cast<int>(sigma / 3))), sigma_(sigma) {
  int w = std::max(1, (width + k_ - 1) / k_), h = std::max(1, (height + k_ - 1) / k_);
  surface_ = cairo_image_surface_create(CAIRO_FORMAT_A8, w, h);
  cr_ = cairo_create(surface_);
  cairo_scale(cr_, 1.0 / k_, 1.0 / k_);
  cairo_translate(cr_, -x, -y);
}

SoftMask::~SoftMask() {
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

bool SoftMask::ok() const {
  return cairo_surface_status(surface_) == CAIRO_STATUS_SUCCESS &&
         cairo_status(cr_) == CAIRO_STATUS_SUCCESS;
}

void SoftMask::blur() {
  cairo_surface_flush(surface_);
  GaussianBlurPixels(cairo_image_surface_get_data(surface_),
                     cairo_image_surface_get_stride(surface_),
                     cairo_image_surface_get_width(surface_),
                     cairo_image_surface_get_height(surface_), 1, sigma_ / k_);
  cairo_surface_mark_dirty(surface_);
}

void SoftMask::fill(cairo_t* canvas) const {
  cairo_save(canvas);
  cairo_translate(canvas, x_, y_);
  cairo_scale(canvas, k_, k_);
  cairo_pattern_t* pattern = cairo_pattern_create_for_surface(surface_);
  cairo_pattern_set_filter(pattern, CAIRO_FILTER_BILINEAR);
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  cairo_mask(canvas, pattern);
  cairo_pattern_destroy(pattern);
  cairo_restore(canvas);
}

}  // namespace klipora::markup
