#include "platform/linux/zbar_qr_reader.h"

#include <zbar.h>

#include <algorithm>
#include <climits>
#include <memory>

namespace klipora {
namespace {

struct ScannerDeleter {
  void operator()(zbar::zbar_image_scanner_t* s) const { zbar::zbar_image_scanner_destroy(s); }
};
struct ImageDeleter {
  void operator()(zbar::zbar_image_t* i) const { zbar::zbar_image_destroy(i); }
};

}  // namespace

std::vector<ReadQRCode> readQRCodes(const uint8_t* grey, int width, int height, int stride) {
  std::vector<ReadQRCode> codes;
  if (grey == nullptr || width <= 0 || height <= 0 || stride < width) return codes;
  // ZBar wants the rows packed.
  std::vector<uint8_t> packed(static_cast<size_t>(width) * height);
  for (int y = 0; y < height; ++y) {
    std::copy_n(grey + static_cast<size_t>(y) * stride, width,
                packed.begin() + static_cast<std::ptrdiff_t>(y) * width);
  }
  std::unique_ptr<zbar::zbar_image_scanner_t, ScannerDeleter> scanner(
      zbar::zbar_image_scanner_create());
  std::unique_ptr<zbar::zbar_image_t, ImageDeleter> image(zbar::zbar_image_create());
  if (!scanner || !image) return codes;
  zbar::zbar_image_scanner_set_config(scanner.get(), zbar::ZBAR_NONE, zbar::ZBAR_CFG_ENABLE, 0);
  zbar::zbar_image_scanner_set_config(scanner.get(), zbar::ZBAR_QRCODE, zbar::ZBAR_CFG_ENABLE, 1);
  zbar::zbar_image_set_format(image.get(), zbar_fourcc('Y', '8', '0', '0'));
  zbar::zbar_image_set_size(image.get(), static_cast<unsigned>(width),
                            static_cast<unsigned>(height));
  zbar::zbar_image_set_data(image.get(), packed.data(), packed.size(), nullptr);
  if (zbar::zbar_scan_image(scanner.get(), image.get()) <= 0) return codes;
  for (const zbar::zbar_symbol_t* symbol = zbar::zbar_image_first_symbol(image.get());
       symbol != nullptr; symbol = zbar::zbar_symbol_next(symbol)) {
    if (zbar::zbar_symbol_get_type(symbol) != zbar::ZBAR_QRCODE) continue;
    int left = INT_MAX, top = INT_MAX, right = INT_MIN, bottom = INT_MIN;
    for (unsigned i = 0; i < zbar::zbar_symbol_get_loc_size(symbol); ++i) {
      int x = zbar::zbar_symbol_get_loc_x(symbol, i), y = zbar::zbar_symbol_get_loc_y(symbol, i);
      left = std::min(left, x), right = std::max(right, x);
      top = std::min(top, y), bottom = std::max(bottom, y);
    }
    if (left > right) continue;
    left = std::clamp(left, 0, width), right = std::clamp(right + 1, left, width);
    top = std::clamp(top, 0, height), bottom = std::clamp(bottom + 1, top, height);
    codes.push_back({{left, top, right - left, bottom - top},
                     std::string(zbar::zbar_symbol_get_data(symbol),
                                 zbar::zbar_symbol_get_data_length(symbol))});
  }
  return codes;
}

}  // namespace klipora
