#include "markup/render/markup_color_adjustment_pipeline.h"

#include <vips/vips.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>

namespace klipora::markup {
namespace {

constexpr double kEpsilon = 0.0001;

// out = m · rgb + b, on values 0..255.
struct ColorMatrix {
  std::array<std::array<double, 3>, 3> m{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  std::array<double, 3> b{0, 0, 0};

  // This step after `first`.
  ColorMatrix after(const ColorMatrix& first) const {
    ColorMatrix out;
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        out.m[r][c] = 0;
        for (int k = 0; k < 3; ++k) out.m[r][c] += m[r][k] * first.m[k][c];
      }
      out.b[r] = b[r];
      for (int k = 0; k < 3; ++k) out.b[r] += m[r][k] * first.b[k];
    }
    return out;
  }
};

constexpr double kLumaR = 0.2126, kLumaG = 0.7152, kLumaB = 0.0722;

ColorMatrix Saturation(double s) {
  ColorMatrix x;
  const double luma[3] = {kLumaR, kLumaG, kLumaB};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) x.m[r][c] = (1 - s) * luma[c] + (r == c ? s : 0);
  }
  return x;
}

// Contrast pivots on mid grey; brightness adds a share of full scale.
ColorMatrix ContrastBrightness(double contrast, double brightness) {
  ColorMatrix x;
  for (int i = 0; i < 3; ++i) {
    x.m[i][i] = contrast;
    x.b[i] = 127.5 * (1 - contrast) + 255 * brightness;
  }
  return x;
}

ColorMatrix Sepia(double intensity) {
  const double sepia[3][3] = {{0.393, 0.769, 0.189}, {0.349, 0.686, 0.168}, {0.272, 0.534, 0.131}};
  ColorMatrix x;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) x.m[r][c] = intensity * sepia[r][c] + (1 - intensity) * (r == c);
  }
  return x;
}

ColorMatrix Tint(double r, double g, double b) {
  ColorMatrix x;
  x.m[0][0] = r, x.m[1][1] = g, x.m[2][2] = b;
  return x;
}

ColorMatrix Preset(MarkupColorAdjustments::Preset preset) {
  using P = MarkupColorAdjustments::Preset;
  switch (preset) {
    case P::none:
      return {};
    case P::noir:  // black and white with hard contrast
      return ContrastBrightness(1.35, -0.04).after(Saturation(0));
    case P::mono:
      return Saturation(0);
    case P::sepia:
      return Sepia(0.95);
    case P::chrome:  // punchy, slightly cool
      return Tint(0.98, 1.0, 1.04).after(ContrastBrightness(1.12, 0).after(Saturation(1.25)));
    case P::fade:  // washed out, lifted blacks
      return ContrastBrightness(0.82, 0.04).after(Saturation(0.7));
    case P::instant:  // warm print
      return Tint(1.06, 1.0, 0.88).after(ContrastBrightness(0.92, 0.03).after(Saturation(0.85)));
    case P::vivid:
      return ContrastBrightness(1.18, 0).after(Saturation(1.35));
  }
  return {};
}

struct Unref {
  void operator()(VipsImage* image) const {
    if (image) g_object_unref(image);
  }
};
using Image = std::unique_ptr<VipsImage, Unref>;

// Runs `op` on `image`; on failure keeps the image as it was (the step is skipped).
template <typename Op>
void Step(Image& image, Op op) {
  VipsImage* out = nullptr;
  if (op(image.get(), &out) == 0 && out) {
    image.reset(out);
  } else {
    vips_error_clear();
  }
}

}  // namespace

std::optional<MarkupImage> MarkupColorAdjustmentPipeline::apply(
    const MarkupImage& input, const MarkupColorAdjustments& a) {
  if (input.empty()) return std::nullopt;
  if (VIPS_INIT("klipora") != 0) vips_error_clear();
  ColorMatrix matrix = Preset(a.preset);
  if (std::abs(a.brightness) > kEpsilon || std::abs(a.contrast - 1) > kEpsilon ||
      std::abs(a.saturation - 1) > kEpsilon) {
    // The stored brightness is halved on purpose: the slider's full travel
    // would otherwise wash the picture out.
    matrix = ContrastBrightness(a.contrast, a.brightness * 0.5).after(Saturation(a.saturation)).after(matrix);
  }
  PixelImage pixels = input.toPixels();
  Image rgba(vips_image_new_from_memory(pixels.pixels.data(), pixels.pixels.size(), pixels.width,
                                        pixels.height, 4, VIPS_FORMAT_UCHAR));
  if (!rgba) {
    vips_error_clear();
    return input.clone();
  }
  Image rgb;
  Image alpha;
  {
    VipsImage* out = nullptr;
    if (vips_extract_band(rgba.get(), &out, 0, "n", 3, nullptr) != 0) return input.clone();
    rgb.reset(out);
    if (vips_extract_band(rgba.get(), &out, 3, nullptr) != 0) return input.clone();
    alpha.reset(out);
  }
  Step(rgb, [&matrix](VipsImage* in, VipsImage** out) {
    VipsImage* m = vips_image_new_matrix(3, 3);
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) *VIPS_MATRIX(m, c, r) = matrix.m[r][c];
    }
    VipsImage* mixed = nullptr;
    int status = vips_recomb(in, &mixed, m, nullptr);
    g_object_unref(m);
    if (status != 0) return status;
    double ones[3] = {1, 1, 1};
    status = vips_linear(mixed, out, ones, matrix.b.data(), 3, nullptr);
    g_object_unref(mixed);
    return status;
  });
  if (a.sharpness > kEpsilon) {
    // Unsharp mask: add back the detail a small blur takes away.
    Step(rgb, [&a](VipsImage* in, VipsImage** out) {
      VipsImage* blurred = nullptr;
      if (vips_gaussblur(in, &blurred, 1.2, nullptr) != 0) return -1;
      VipsImage* detail = nullptr;
      int status = vips_subtract(in, blurred, &detail, nullptr);
      g_object_unref(blurred);
      if (status != 0) return status;
      VipsImage* scaled = nullptr;
      status = vips_linear1(detail, &scaled, 2.0 * a.sharpness, 0, nullptr);
      g_object_unref(detail);
      if (status != 0) return status;
      status = vips_add(in, scaled, out, nullptr);
      g_object_unref(scaled);
      return status;
    });
  }
  if (a.inverted) {
    Step(rgb, [](VipsImage* in, VipsImage** out) { return vips_linear1(in, out, -1, 255, nullptr); });
  }
  Step(rgb, [](VipsImage* in, VipsImage** out) {
    return vips_cast(in, out, VIPS_FORMAT_UCHAR, nullptr);
  });
  Image joined;
  {
    VipsImage* out = nullptr;
    if (vips_bandjoin2(rgb.get(), alpha.get(), &out, nullptr) != 0) {
      vips_error_clear();
      return input.clone();
    }
    joined.reset(out);
  }
  size_t size = 0;
  void* bytes = vips_image_write_to_memory(joined.get(), &size);
  if (!bytes || size != pixels.pixels.size()) {
    if (bytes) g_free(bytes);
    vips_error_clear();
    return input.clone();
  }
  std::memcpy(pixels.pixels.data(), bytes, size);
  g_free(bytes);
  return MarkupImage::fromPixels(pixels);
}

}  // namespace klipora::markup
