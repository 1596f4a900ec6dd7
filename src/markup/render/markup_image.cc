#include "markup/render/markup_image.h"

#include <cstring>
#include <utility>

namespace klipora::markup {
namespace {

inline uint8_t Premultiply(uint8_t c, uint8_t a) {
  return static_cast<uint8_t>((c * a + 127) / 255);
}

inline uint8_t Unpremultiply(uint8_t c, uint8_t a) {
  if (a == 0) return 0;
  unsigned value = (c * 255u + a / 2) / a;
  return static_cast<uint8_t>(value > 255 ? 255 : value);
}

}  // namespace

MarkupImage::~MarkupImage() {
  if (surface_) cairo_surface_destroy(surface_);
}

MarkupImage::MarkupImage(MarkupImage&& other) noexcept
    : surface_(std::exchange(other.surface_, nullptr)) {}

MarkupImage& MarkupImage::operator=(MarkupImage&& other) noexcept {
  if (this != &other) {
    if (surface_) cairo_surface_destroy(surface_);
    surface_ = std::exchange(other.surface_, nullptr);
  }
  return *this;
}

std::optional<MarkupImage> MarkupImage::create(int width, int height) {
  if (width < 1 || height < 1) return std::nullopt;
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return std::nullopt;
  }
  return MarkupImage(surface);
}

std::optional<MarkupImage> MarkupImage::fromPixels(const PixelImage& pixels) {
  if (pixels.channels < 1 || pixels.channels > 4 ||
      pixels.pixels.size() < static_cast<size_t>(pixels.width) * pixels.height * pixels.channels) {
    return std::nullopt;
  }
  auto image = create(pixels.width, pixels.height);
  if (!image) return std::nullopt;
  cairo_surface_flush(image->surface_);
  for (int y = 0; y < pixels.height; ++y) {
    const uint8_t* in = pixels.row(y);
    auto* out = reinterpret_cast<uint32_t*>(image->data() + static_cast<size_t>(y) * image->stride());
    for (int x = 0; x < pixels.width; ++x, in += pixels.channels) {
      uint8_t r, g, b, a = 255;
      if (pixels.channels <= 2) {
        r = g = b = in[0];
        if (pixels.channels == 2) a = in[1];
      } else {
        r = in[0], g = in[1], b = in[2];
        if (pixels.channels == 4) a = in[3];
      }
      if (a == 255) {
        out[x] = 0xFF000000u | (uint32_t{r} << 16) | (uint32_t{g} << 8) | b;
        continue;
      }
      out[x] = (uint32_t{a} << 24) | (uint32_t{Premultiply(r, a)} << 16) |
               (uint32_t{Premultiply(g, a)} << 8) | Premultiply(b, a);
    }
  }
  cairo_surface_mark_dirty(image->surface_);
  return image;
}

std::optional<MarkupImage> MarkupImage::clone() const {
  if (!surface_) return std::nullopt;
  auto copy = create(width(), height());
  if (!copy) return std::nullopt;
  cairo_surface_flush(surface_);
  std::memcpy(copy->data(), data(), static_cast<size_t>(stride()) * height());
  cairo_surface_mark_dirty(copy->surface_);
  return copy;
}

PixelImage MarkupImage::toPixels() const {
  PixelImage out{width(), height(), 4, {}};
  if (!surface_) return out;
  cairo_surface_flush(surface_);
  out.pixels.resize(static_cast<size_t>(out.width) * out.height * 4);
  for (int y = 0; y < out.height; ++y) {
    auto* in = reinterpret_cast<const uint32_t*>(data() + static_cast<size_t>(y) * stride());
    uint8_t* o = out.row(y);
    for (int x = 0; x < out.width; ++x, o += 4) {
      uint32_t p = in[x];
      uint8_t a = p >> 24;
      if (a == 255) {  // most of a screenshot: nothing to divide
        o[0] = (p >> 16) & 0xff, o[1] = (p >> 8) & 0xff, o[2] = p & 0xff, o[3] = 255;
        continue;
      }
      o[0] = Unpremultiply((p >> 16) & 0xff, a);
      o[1] = Unpremultiply((p >> 8) & 0xff, a);
      o[2] = Unpremultiply(p & 0xff, a);
      o[3] = a;
    }
  }
  return out;
}

int MarkupImage::width() const { return surface_ ? cairo_image_surface_get_width(surface_) : 0; }
int MarkupImage::height() const { return surface_ ? cairo_image_surface_get_height(surface_) : 0; }
int MarkupImage::stride() const { return surface_ ? cairo_image_surface_get_stride(surface_) : 0; }
uint8_t* MarkupImage::data() { return cairo_image_surface_get_data(surface_); }
const uint8_t* MarkupImage::data() const { return cairo_image_surface_get_data(surface_); }

Rgba8 MarkupImage::pixel(int x, int y) const {
  if (!surface_ || x < 0 || y < 0 || x >= width() || y >= height()) return {};
  cairo_surface_flush(surface_);
  uint32_t p = reinterpret_cast<const uint32_t*>(data() + static_cast<size_t>(y) * stride())[x];
  uint8_t a = p >> 24;
  return {Unpremultiply((p >> 16) & 0xff, a), Unpremultiply((p >> 8) & 0xff, a),
          Unpremultiply(p & 0xff, a), a};
}

}  // namespace klipora::markup
