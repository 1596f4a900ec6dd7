#include "platform/linux/vips_image_codec.h"

#include <vips/vips.h>

#include <cstring>
#include <mutex>

namespace klipora {
namespace {

// Owns one GObject reference.
template <typename T>
class Ref {
 public:
  Ref() = default;
  explicit Ref(T* p) : p_(p) {}
  ~Ref() {
    if (p_) g_object_unref(p_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  T* get() const { return p_; }
  T** out() { return &p_; }

 private:
  T* p_ = nullptr;
};

std::string TakeVipsError() {
  std::string message = vips_error_buffer();
  vips_error_clear();
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
    message.pop_back();
  }
  return message.empty() ? std::string("unknown libvips error") : message;
}

// libvips shows EXIF strings as "2024:02:29 23:59:59 (2024:02:29 23:59:59, ASCII, 20
// components, 20 bytes)"; the value proper is the text before " (".
std::optional<std::string> ExifString(VipsImage* image, const char* field) {
  if (vips_image_get_typeof(image, field) == 0) return std::nullopt;
  const char* value = nullptr;
  if (vips_image_get_string(image, field, &value) != 0 || value == nullptr) {
    vips_error_clear();
    return std::nullopt;
  }
  std::string text(value);
  size_t paren = text.find(" (");
  if (paren != std::string::npos) text.resize(paren);
  return text;
}

}  // namespace

VipsImageCodec::VipsImageCodec() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (VIPS_INIT("klipora") != 0) vips_error_clear();
    vips_cache_set_max(0);
  });
}

Result<ImageProperties> VipsImageCodec::properties(std::string_view bytes) {
  if (bytes.empty()) return Err(Status::InvalidArgument("the file is empty"));
  const char* loader = vips_foreign_find_load_buffer(bytes.data(), bytes.size());
  if (loader == nullptr) {
    vips_error_clear();
    return Err(Status::InvalidArgument("not an image in a format libvips can read"));
  }
  Ref<VipsImage> image(vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr));
  if (image.get() == nullptr) return Err(Status::InvalidArgument(TakeVipsError()));
  ImageProperties p;
  p.width = vips_image_get_width(image.get());
  p.height = vips_image_get_height(image.get());
  int orientation = 1;
  if (vips_image_get_typeof(image.get(), VIPS_META_ORIENTATION) != 0 &&
      vips_image_get_int(image.get(), VIPS_META_ORIENTATION, &orientation) == 0 &&
      orientation >= 1 && orientation <= 8) {
    p.orientation = orientation;
  }
  vips_error_clear();
  p.exifDateTimeOriginal = ExifString(image.get(), "exif-ifd2-DateTimeOriginal");
  p.exifDateTimeDigitized = ExifString(image.get(), "exif-ifd2-DateTimeDigitized");
  p.tiffDateTime = ExifString(image.get(), "exif-ifd0-DateTime");
  std::string name = loader;  // "VipsForeignLoadPngBuffer" → "png"
  if (name.rfind("VipsForeignLoad", 0) == 0) name = name.substr(15);
  for (const char* suffix : {"Buffer", "Source"}) {
    size_t at = name.rfind(suffix);
    if (at != std::string::npos && at + std::strlen(suffix) == name.size()) name.resize(at);
  }
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  p.format = name;
  return p;
}

Result<std::string> VipsImageCodec::makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                      int quality) {
  Ref<VipsImage> thumb;
  if (vips_thumbnail_buffer(const_cast<char*>(bytes.data()), bytes.size(), thumb.out(),
                            maxPixelSize, "height", maxPixelSize, "size", VIPS_SIZE_DOWN,
                            "fail_on", VIPS_FAIL_ON_ERROR, nullptr) != 0) {
    return Err(Status::Corruption(TakeVipsError()));
  }
  VipsImage* ready = thumb.get();
  Ref<VipsImage> flat;
  if (vips_image_hasalpha(ready)) {
    // One value is applied to every band, so grey and colour images both work.
    double white[] = {vips_image_get_format(ready) == VIPS_FORMAT_USHORT ? 65535.0 : 255.0};
    VipsArrayDouble* background = vips_array_double_new(white, 1);
    int rc = vips_flatten(ready, flat.out(), "background", background, nullptr);
    vips_area_unref(VIPS_AREA(background));
    if (rc != 0) return Err(Status::Corruption(TakeVipsError()));
    ready = flat.get();
  }
  void* out = nullptr;
  size_t length = 0;
  if (vips_jpegsave_buffer(ready, &out, &length, "Q", quality, "strip", TRUE, nullptr) != 0) {
    return Err(Status::Corruption(TakeVipsError()));
  }
  std::string jpeg(static_cast<const char*>(out), length);
  g_free(out);
  return jpeg;
}

}  // namespace klipora
