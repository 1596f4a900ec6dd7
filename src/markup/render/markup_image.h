// MarkupImage: the bitmap the renderer draws on and hands back, an owned
// Cairo image surface in ARGB32 (8 bits per channel, premultiplied alpha,
// native-endian 32-bit pixels). Move-only: one owner draws on it at a time.
//
// Thread rules: one thread at a time per image; distinct images are
// independent.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <optional>

#include "platform/pixel_image.h"

namespace klipora::markup {

// One pixel with straight (not premultiplied) alpha.
struct Rgba8 {
  uint8_t r = 0, g = 0, b = 0, a = 0;
  bool operator==(const Rgba8&) const = default;
};

class MarkupImage {
 public:
  MarkupImage() = default;
  ~MarkupImage();
  MarkupImage(MarkupImage&& other) noexcept;
  MarkupImage& operator=(MarkupImage&& other) noexcept;
  MarkupImage(const MarkupImage&) = delete;
  MarkupImage& operator=(const MarkupImage&) = delete;

  // A transparent image; none when Cairo cannot make one (size below 1 pixel,
  // beyond Cairo's limit of 32767, or out of memory).
  static std::optional<MarkupImage> create(int width, int height);
  // From decoded pixels (grey, RGB or straight RGBA); none as for create().
  static std::optional<MarkupImage> fromPixels(const PixelImage& pixels);
  // A copy with its own pixels.
  std::optional<MarkupImage> clone() const;

  // Straight RGBA, the form the codec encodes.
  PixelImage toPixels() const;

  bool empty() const { return surface_ == nullptr; }
  int width() const;
  int height() const;
  int stride() const;
  uint8_t* data();
  const uint8_t* data() const;
  cairo_surface_t* surface() const { return surface_; }
  // The pixel at (x, y), un-premultiplied; transparent outside the image.
  Rgba8 pixel(int x, int y) const;

 private:
  explicit MarkupImage(cairo_surface_t* surface) : surface_(surface) {}
  cairo_surface_t* surface_ = nullptr;
};

// A Cairo context on `image`, destroyed with this object.
class CairoContext {
 public:
  explicit CairoContext(MarkupImage& image) : cr_(cairo_create(image.surface())) {}
  ~CairoContext() { cairo_destroy(cr_); }
  CairoContext(const CairoContext&) = delete;
  CairoContext& operator=(const CairoContext&) = delete;
  cairo_t* get() const { return cr_; }
  bool ok() const { return cairo_status(cr_) == CAIRO_STATUS_SUCCESS; }

 private:
  cairo_t* cr_;
};

}  // namespace klipora::markup
