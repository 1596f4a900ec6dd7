// Gaussian blur of a rectangle of pixels in place, on libvips. Works on the
// pixels inside the rectangle only: nothing outside it is read or written,
// and its edges repeat outward, so a blurred region does not darken at its
// border. Also the soft masks of feathered spotlights and shadows.
//
// Thread rules: safe from any thread (libvips is initialised once).
#pragma once

#include <cairo.h>

#include <cstdint>

namespace klipora::markup {

// Blurs `width` × `height` pixels of `bands` 8-bit channels starting at
// `data`, rows `stride` bytes apart, with standard deviation `sigma`. False
// (pixels untouched) when libvips fails; a sigma below 0.1 changes nothing.
bool GaussianBlurPixels(uint8_t* data, int stride, int width, int height, int bands,
                        double sigma);

// A soft coverage mask: `addPath` adds a path in canvas coordinates (with the
// fill rule it needs set), the mask covers the canvas rectangle (x, y,
// width, height), and its edges are blurred with standard deviation `sigma`.
// The mask is drawn at a scale of 1/k (k grows with sigma, so the blur stays
// cheap) and enlarged by Cairo while compositing. Then `fill` paints the
// current source of `cr` through it at that rectangle. Without the blur (when
// libvips fails) the mask is drawn unblurred. False when Cairo cannot make
// the mask.
class SoftMask {
 public:
  SoftMask(int x, int y, int width, int height, double sigma);
  ~SoftMask();
  SoftMask(const SoftMask&) = delete;
  SoftMask& operator=(const SoftMask&) = delete;

  bool ok() const;
  // A context whose user space is canvas coordinates; paint into it with
  // alpha as coverage, then call blur().
  cairo_t* context() const { return cr_; }
  void blur();
  void fill(cairo_t* canvas) const;

 private:
  int x_, y_, k_;
  double sigma_;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
};

}  // namespace klipora::markup
