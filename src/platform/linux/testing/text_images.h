// Images with known text for tests of the real recogniser, rendered at test
// time by libvips (Pango underneath) and encoded in any format it writes:
// light or dark, grey, 16-bit, CMYK, with transparency, or animated.
#pragma once

#include <vips/vips.h>

#include <string>
#include <vector>

#include "platform/pixel_image.h"

namespace klipora::testing {

struct TextPatch {
  std::string text;  // lines separated by '\n'
  int left = 20;
  int top = 20;
  std::string font = "DejaVu Sans 12";
  uint8_t ink = 20;
  // Paper behind the patch; -1 leaves the page as it is.
  int paper = -1;
};

struct TextImageOptions {
  int width = 640;
  int height = 200;
  uint8_t page = 250;
  std::vector<TextPatch> patches;
  std::string format = ".png";  // anything vips_image_write_to_buffer takes
  bool sixteenBit = false;
  bool cmyk = false;          // JPEG only
  bool transparent = false;   // ink on a transparent page (PNG, WebP)
  std::string secondFrame;    // text of a second GIF frame
};

namespace text_images_detail {

// Owns the vips images made along the way.
class Images {
 public:
  ~Images() {
    for (VipsImage* i : owned_) g_object_unref(i);
  }
  VipsImage* keep(VipsImage* i) {
    owned_.push_back(i);
    return i;
  }

 private:
  std::vector<VipsImage*> owned_;
};

// The page as one grey band, patches drawn in.
inline VipsImage* Page(Images& images, const TextImageOptions& o, const std::string& first) {
  static const bool initialised = VIPS_INIT("klipora-tests") == 0;
  (void)initialised;
  VipsImage* page = nullptr;
  vips_black(&page, o.width, o.height, nullptr);
  images.keep(page);
  VipsImage* flat = nullptr;
  vips_linear1(page, &flat, 1, o.transparent ? 0 : o.page, nullptr);
  images.keep(flat);
  VipsImage* canvas = nullptr;
  vips_cast(flat, &canvas, VIPS_FORMAT_UCHAR, nullptr);
  images.keep(canvas);
  std::vector<TextPatch> patches = o.patches;
  if (!first.empty() && !patches.empty()) patches[0].text = first;
  for (const TextPatch& p : patches) {
    VipsImage* mask = nullptr;
    if (vips_text(&mask, p.text.c_str(), "font", p.font.c_str(), "dpi", 96, nullptr)) continue;
    images.keep(mask);
    int paper = o.transparent ? 0 : (p.paper >= 0 ? p.paper : o.page);
    // Coverage 0..255 of the glyphs blends paper into ink (or, on a
    // transparent page, becomes the alpha itself).
    double scale = o.transparent ? 1.0 : (p.ink - paper) / 255.0;
    VipsImage* blended = nullptr;
    vips_linear1(mask, &blended, scale, o.transparent ? 0 : paper, nullptr);
    images.keep(blended);
    VipsImage* patch = nullptr;
    vips_cast(blended, &patch, VIPS_FORMAT_UCHAR, nullptr);
    images.keep(patch);
    if (p.paper >= 0 && !o.transparent) {
      VipsImage* block = nullptr;
      vips_black(&block, vips_image_get_width(patch) + 24, vips_image_get_height(patch) + 16,
                 nullptr);
      images.keep(block);
      VipsImage* filled = nullptr;
      vips_linear1(block, &filled, 1, p.paper, nullptr);
      images.keep(filled);
      VipsImage* cast = nullptr;
      vips_cast(filled, &cast, VIPS_FORMAT_UCHAR, nullptr);
      images.keep(cast);
      VipsImage* behind = nullptr;
      vips_insert(canvas, cast, &behind, p.left - 12, p.top - 8, nullptr);
      canvas = images.keep(behind);
    }
    VipsImage* inserted = nullptr;
    vips_insert(canvas, patch, &inserted, p.left, p.top, nullptr);
    canvas = images.keep(inserted);
  }
  return canvas;
}

}  // namespace text_images_detail

// The image encoded in options.format; empty on failure.
inline std::string makeTextImage(const TextImageOptions& o) {
  using text_images_detail::Images;
  Images images;
  VipsImage* grey = text_images_detail::Page(images, o, "");
  VipsImage* image = grey;
  if (o.transparent) {
    // Black ink whose coverage is the alpha.
    VipsImage* black = nullptr;
    vips_black(&black, o.width, o.height, "bands", 3, nullptr);
    images.keep(black);
    VipsImage* ink = nullptr;
    vips_cast(black, &ink, VIPS_FORMAT_UCHAR, nullptr);
    images.keep(ink);
    VipsImage* rgba = nullptr;
    vips_bandjoin2(ink, grey, &rgba, nullptr);
    image = images.keep(rgba);
  } else if (!o.secondFrame.empty()) {
    VipsImage* second = text_images_detail::Page(images, o, o.secondFrame);
    VipsImage* frames[2] = {grey, second};
    VipsImage* strip = nullptr;
    vips_arrayjoin(frames, &strip, 2, "across", 1, nullptr);
    images.keep(strip);
    VipsImage* copy = nullptr;
    vips_copy(strip, &copy, nullptr);
    image = images.keep(copy);
    vips_image_set_int(image, "page-height", o.height);
  }
  if (o.sixteenBit) {
    VipsImage* wide = nullptr;
    vips_linear1(image, &wide, 257, 0, nullptr);
    images.keep(wide);
    VipsImage* cast = nullptr;
    vips_cast(wide, &cast, VIPS_FORMAT_USHORT, nullptr);
    images.keep(cast);
    VipsImage* tagged = nullptr;
    vips_copy(cast, &tagged, "interpretation", VIPS_INTERPRETATION_GREY16, nullptr);
    image = images.keep(tagged);
  }
  if (o.cmyk) {
    VipsImage* cmyk = nullptr;
    if (vips_colourspace(image, &cmyk, VIPS_INTERPRETATION_CMYK, nullptr)) return {};
    image = images.keep(cmyk);
  }
  void* buffer = nullptr;
  size_t length = 0;
  if (vips_image_write_to_buffer(image, o.format.c_str(), &buffer, &length, nullptr) != 0) {
    vips_error_clear();
    return {};
  }
  std::string bytes(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return bytes;
}

// The same page as grey pixels in memory.
inline PixelImage makeTextPixels(const TextImageOptions& o) {
  text_images_detail::Images images;
  VipsImage* grey = text_images_detail::Page(images, o, "");
  size_t length = 0;
  void* memory = vips_image_write_to_memory(grey, &length);
  PixelImage out{o.width, o.height, 1, {}};
  out.pixels.assign(static_cast<uint8_t*>(memory), static_cast<uint8_t*>(memory) + length);
  g_free(memory);
  return out;
}

}  // namespace klipora::testing
