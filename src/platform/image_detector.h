// ImageDetector: finds things in an image that are not text: faces, people,
// QR codes, and the straight line segments that tell how content is tilted.
// The real detector (OpenCvImageDetector, platform/linux) uses OpenCV's Haar
// cascades (frontal and profile faces), its HOG people detector, its QR code
// detector and a probabilistic Hough transform.
//
// Every method takes 8-bit pixels of 1, 3 or 4 channels and reports
// rectangles in that image's pixels, origin at the top left. Unavailable
// (naming what to install) when the detector's models are missing;
// InvalidArgument for an empty image.
//
// Thread rules: safe to call from any thread; calls may run concurrently.
#pragma once

#include <string>
#include <vector>

#include "platform/pixel_image.h"
#include "platform/status.h"

namespace klipora {

struct ImageRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool operator==(const ImageRect&) const = default;
};

struct DetectedCode {
  ImageRect frame;
  std::string payload;  // the decoded text; empty when the code does not decode
};

struct LineSegment {
  double x1 = 0, y1 = 0, x2 = 0, y2 = 0;
};

class ImageDetector {
 public:
  ImageDetector() = default;
  ImageDetector(const ImageDetector&) = delete;
  ImageDetector& operator=(const ImageDetector&) = delete;
  virtual ~ImageDetector() = default;

  // Faces seen from the front or in profile.
  virtual Result<std::vector<ImageRect>> detectFaces(const PixelImage& image) = 0;
  // Standing or walking people, whole bodies.
  virtual Result<std::vector<ImageRect>> detectPeople(const PixelImage& image) = 0;
  // Every QR code found, decoded where it can be.
  virtual Result<std::vector<DetectedCode>> detectQRCodes(const PixelImage& image) = 0;
  // Straight segments along strong edges (window borders, rules, text lines).
  virtual Result<std::vector<LineSegment>> detectLineSegments(const PixelImage& image) = 0;
};

}  // namespace klipora
