// Reads the text of QR codes with ZBar. OpenCV as Debian builds it finds QR
// codes but cannot decode them (it is built without its decoder library);
// OpenCvImageDetector takes the codes' places from OpenCV and their text from
// here.
//
// Thread rules: each call uses its own scanner; calls may run concurrently.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/image_detector.h"

namespace klipora {

struct ReadQRCode {
  ImageRect frame;  // the box around the code's corners, image pixels
  std::string payload;
};

// Every QR code ZBar decodes in 8-bit grey pixels of `width` × `height`,
// rows `stride` bytes apart. Nothing for an empty image.
std::vector<ReadQRCode> readQRCodes(const uint8_t* grey, int width, int height, int stride);

}  // namespace klipora
