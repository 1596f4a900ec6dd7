#include "platform/linux/vips_image_codec.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vips/vips.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <vector>

#include "platform/image_format.h"

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

// Passed to the loader: a truncated file fails instead of decoding to grey.
// (libvips 8.14 does not hand the thumbnail's own fail_on to the loader.)
constexpr const char* kFailOnTruncation = "fail_on=truncated";

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
    // libvips warns on standard error about each damaged tile of a broken
    // file; the failure itself comes back as an error value.
    g_log_set_handler("VIPS", G_LOG_LEVEL_WARNING,
                      [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
  });
}

namespace {

ImageProperties PropertiesOf(VipsImage* image, std::string loader) {
  ImageProperties p;
  p.width = vips_image_get_width(image);
  p.height = vips_image_get_height(image);
  int orientation = 1;
  if (vips_image_get_typeof(image, VIPS_META_ORIENTATION) != 0 &&
      vips_image_get_int(image, VIPS_META_ORIENTATION, &orientation) == 0 && orientation >= 1 &&
      orientation <= 8) {
    p.orientation = orientation;
  }
  vips_error_clear();
  p.exifDateTimeOriginal = ExifString(image, "exif-ifd2-DateTimeOriginal");
  p.exifDateTimeDigitized = ExifString(image, "exif-ifd2-DateTimeDigitized");
  p.tiffDateTime = ExifString(image, "exif-ifd0-DateTime");
  // "VipsForeignLoadPngBuffer" → "png"
  if (loader.rfind("VipsForeignLoad", 0) == 0) loader = loader.substr(15);
  for (const char* suffix : {"Buffer", "Source", "File"}) {
    size_t at = loader.rfind(suffix);
    if (at != std::string::npos && at + std::strlen(suffix) == loader.size()) loader.resize(at);
  }
  for (char& c : loader) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  p.format = loader;
  return p;
}

// A header may declare billions of pixels; decoding them would take minutes
// even when the data behind them is missing.
Status CheckThumbnailSize(const ImageProperties& header) {
  if (static_cast<int64_t>(header.width) * header.height > ImageCodec::kMaxThumbnailSourcePixels) {
    return Status::InvalidArgument("image of " + std::to_string(header.width) + "x" +
                                   std::to_string(header.height) +
                                   " pixels is too large to thumbnail");
  }
  return Status::Ok();
}

// Flattens transparency on white and encodes the thumbnail as JPEG.
Result<std::string> EncodeThumbnail(VipsImage* thumbnail, int quality) {
  VipsImage* ready = thumbnail;
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

Status NotAReadableFormat() {
  return Status::InvalidArgument(std::string("not an image in a format Klipora reads (") +
                                 kReadableImageFormats + ")");
}

// The first bytes of a regular file; empty when it cannot be read.
std::string HeadOfFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return {};
  std::string head(kImageSignatureBytes, '\0');
  struct stat st {};
  ssize_t n = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) ? ::read(fd, head.data(), head.size())
                                                            : -1;
  ::close(fd);
  head.resize(n > 0 ? static_cast<size_t>(n) : 0);
  return head;
}

}  // namespace

// Only the formats of identifyImageFormat reach libvips: it also carries
// loaders for PDF, SVG and, through ImageMagick, dozens more, which a file
// named .png must never reach (and asking ImageMagick costs milliseconds per
// file that is no image at all).
Result<ImageProperties> VipsImageCodec::properties(std::string_view bytes) {
  if (bytes.empty()) return Err(Status::InvalidArgument("the file is empty"));
  if (!identifyImageFormat(bytes.substr(0, kImageSignatureBytes))) return Err(NotAReadableFormat());
  const char* loader = vips_foreign_find_load_buffer(bytes.data(), bytes.size());
  if (loader == nullptr) {
    vips_error_clear();
    return Err(NotAReadableFormat());
  }
  Ref<VipsImage> image(vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr));
  if (image.get() == nullptr) return Err(Status::InvalidArgument(TakeVipsError()));
  return PropertiesOf(image.get(), loader);
}

Result<ImageProperties> VipsImageCodec::propertiesOfFile(const std::string& path) {
  if (!identifyImageFormat(HeadOfFile(path))) return Err(NotAReadableFormat());
  const char* loader = vips_foreign_find_load(path.c_str());
  if (loader == nullptr) {
    vips_error_clear();
    return Err(NotAReadableFormat());
  }
  // Opening reads the header only; pixels are decoded when asked for.
  Ref<VipsImage> image(vips_image_new_from_file(path.c_str(), nullptr));
  if (image.get() == nullptr) return Err(Status::InvalidArgument(TakeVipsError()));
  return PropertiesOf(image.get(), loader);
}

Result<std::string> VipsImageCodec::makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                      int quality) {
  ASSIGN_OR_RETURN(ImageProperties header, properties(bytes));
  RETURN_IF_ERROR(CheckThumbnailSize(header));
  Ref<VipsImage> thumb;
  if (vips_thumbnail_buffer(const_cast<char*>(bytes.data()), bytes.size(), thumb.out(),
                            maxPixelSize, "height", maxPixelSize, "size", VIPS_SIZE_DOWN,
                            "option_string", kFailOnTruncation, nullptr) != 0) {
    return Err(Status::Corruption(TakeVipsError()));
  }
  return EncodeThumbnail(thumb.get(), quality);
}

Result<std::string> VipsImageCodec::makeJpegThumbnailOfFile(const std::string& path,
                                                            int maxPixelSize, int quality) {
  ASSIGN_OR_RETURN(ImageProperties header, propertiesOfFile(path));
  RETURN_IF_ERROR(CheckThumbnailSize(header));
  Ref<VipsImage> thumb;
  if (vips_thumbnail(path.c_str(), thumb.out(), maxPixelSize, "height", maxPixelSize, "size",
                     VIPS_SIZE_DOWN, "fail_on", VIPS_FAIL_ON_TRUNCATED, nullptr) != 0) {
    return Err(Status::Corruption(TakeVipsError()));
  }
  return EncodeThumbnail(thumb.get(), quality);
}

namespace {

// A pipeline of libvips operations; owns every step's image.
class Chain {
 public:
  explicit Chain(VipsImage* first) { steps_.push_back(first); }
  ~Chain() {
    for (VipsImage* step : steps_) g_object_unref(step);
  }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;
  VipsImage* get() const { return steps_.back(); }
  template <typename Op>
  bool apply(Op op) {
    VipsImage* out = nullptr;
    if (op(get(), &out) != 0) return false;
    steps_.push_back(out);
    return true;
  }

 private:
  std::vector<VipsImage*> steps_;
};

bool IsShort(VipsImage* image) {
  VipsBandFormat f = vips_image_get_format(image);
  return f == VIPS_FORMAT_USHORT || f == VIPS_FORMAT_SHORT;
}

// Brings any band format to 8 bits; 16-bit samples keep their high byte.
bool ToUchar(Chain& chain) {
  VipsBandFormat f = vips_image_get_format(chain.get());
  if (f == VIPS_FORMAT_UCHAR) return true;
  if (IsShort(chain.get()) &&
      !chain.apply([](VipsImage* in, VipsImage** out) {
        return vips_linear1(in, out, 1.0 / 257.0, 0.0, nullptr);
      })) {
    return false;
  }
  return chain.apply([](VipsImage* in, VipsImage** out) {
    return vips_cast(in, out, VIPS_FORMAT_UCHAR, "shift", FALSE, nullptr);
  });
}

bool IsPlainColour(VipsInterpretation interpretation) {
  switch (interpretation) {
    case VIPS_INTERPRETATION_sRGB:
    case VIPS_INTERPRETATION_RGB16:
    case VIPS_INTERPRETATION_B_W:
    case VIPS_INTERPRETATION_GREY16:
    case VIPS_INTERPRETATION_MULTIBAND:  // plain bands (an 8-bit palette or grey image)
      return true;
    default:
      return false;
  }
}

// One row of 1 (grey), 2 (grey, alpha), 3 (RGB) or 4 (RGBA) bands to grey,
// transparent areas composited on white paper.
void ConvertRowToGrey(const uint8_t* src, int bands, int width, uint8_t* dst) {
  switch (bands) {
    case 1:
      std::memcpy(dst, src, width);
      return;
    case 2:
      for (int x = 0; x < width; ++x, src += 2) dst[x] = OverWhite(src[0], src[1]);
      return;
    case 3:
      for (int x = 0; x < width; ++x, src += 3) dst[x] = Luma(src[0], src[1], src[2]);
      return;
    default:
      for (int x = 0; x < width; ++x, src += 4) {
        dst[x] = OverWhite(Luma(src[0], src[1], src[2]), src[3]);
      }
      return;
  }
}

void ConvertRowToRgba(const uint8_t* src, int bands, int width, uint8_t* dst) {
  for (int x = 0; x < width; ++x, src += bands, dst += 4) {
    const bool colour = bands >= 3;
    dst[0] = src[0];
    dst[1] = colour ? src[1] : src[0];
    dst[2] = colour ? src[2] : src[0];
    dst[3] = bands == 2 || bands == 4 ? src[bands - 1] : 255;
  }
}

}  // namespace

Result<PixelImage> VipsImageCodec::decodePixels(std::string_view bytes,
                                                const PixelDecodeOptions& options) {
  ASSIGN_OR_RETURN(ImageProperties header, properties(bytes));
  bool swapped = header.orientation >= 5;
  int64_t width = swapped ? header.height : header.width;
  int64_t height = swapped ? header.width : header.height;
  if (options.maxPixels > 0 && width * height > options.maxPixels) {
    double scale = std::sqrt(static_cast<double>(options.maxPixels) / (width * height));
    width = std::max<int64_t>(1, static_cast<int64_t>(width * scale));
    height = std::max<int64_t>(1, static_cast<int64_t>(height * scale));
  }
  // vips_thumbnail loads the first frame, rotates by the EXIF orientation,
  // imports CMYK and embedded profiles to sRGB and shrinks while loading when
  // the image is larger than asked. The pipeline is pulled strip by strip
  // below, so memory is the output buffer plus a few strips.
  VipsImage* loaded = nullptr;
  if (vips_thumbnail_buffer(const_cast<char*>(bytes.data()), bytes.size(), &loaded,
                            static_cast<int>(width), "height", static_cast<int>(height), "size",
                            VIPS_SIZE_DOWN, "option_string", kFailOnTruncation, nullptr) != 0) {
    return Err(Status::Corruption(TakeVipsError()));
  }
  Chain chain(loaded);
  VipsInterpretation interpretation = vips_image_get_interpretation(chain.get());
  bool ok = true;
  if (!IsPlainColour(interpretation) || vips_image_get_bands(chain.get()) > 4) {
    ok = chain.apply([](VipsImage* in, VipsImage** out) {
      return vips_colourspace(in, out, VIPS_INTERPRETATION_sRGB, nullptr);
    });
  }
  ok = ok && ToUchar(chain);
  if (!ok) return Err(Status::Corruption(TakeVipsError()));

  VipsImage* ready = chain.get();
  const int bands = vips_image_get_bands(ready);
  if (bands < 1 || bands > 4) return Err(Status::Corruption("unexpected band count"));
  const bool grey = options.format == PixelDecodeOptions::Format::grey;
  PixelImage image;
  image.width = vips_image_get_width(ready);
  image.height = vips_image_get_height(ready);
  image.channels = grey ? 1 : 4;
  image.pixels.resize(static_cast<size_t>(image.width) * image.height * image.channels);
  Ref<VipsRegion> region(vips_region_new(ready));
  const int strip = 64;
  for (int top = 0; top < image.height; top += strip) {
    VipsRect rect = {0, top, image.width, std::min(strip, image.height - top)};
    if (vips_region_prepare(region.get(), &rect) != 0) {
      return Err(Status::Corruption(TakeVipsError()));
    }
    for (int y = rect.top; y < rect.top + rect.height; ++y) {
      const auto* src = reinterpret_cast<const uint8_t*>(VIPS_REGION_ADDR(region.get(), 0, y));
      if (grey) {
        ConvertRowToGrey(src, bands, image.width, image.row(y));
      } else {
        ConvertRowToRgba(src, bands, image.width, image.row(y));
      }
    }
  }
  return image;
}

Result<std::string> VipsImageCodec::encodePng(const PixelImage& image) {
  if (image.empty() || image.channels < 1 || image.channels > 4 ||
      image.pixels.size() != static_cast<size_t>(image.width) * image.height * image.channels) {
    return Err(Status::InvalidArgument("no pixels to encode"));
  }
  Ref<VipsImage> in(vips_image_new_from_memory(image.pixels.data(), image.pixels.size(),
                                               image.width, image.height, image.channels,
                                               VIPS_FORMAT_UCHAR));
  if (!in.get()) return Err(Status::Internal(TakeVipsError()));
  void* buffer = nullptr;
  size_t length = 0;
  // Level 6 with adaptive filtering: near the smallest files, at a fraction
  // of level 9's time.
  if (vips_pngsave_buffer(in.get(), &buffer, &length, "compression", 6, "filter",
                          VIPS_FOREIGN_PNG_FILTER_ALL, nullptr) != 0) {
    return Err(Status::Internal(TakeVipsError()));
  }
  std::string bytes(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return bytes;
}

}  // namespace klipora
