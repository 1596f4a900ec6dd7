// OpenCvImageDetector: the ImageDetector on OpenCV. Faces: the Haar cascades
// of opencv-data, frontal and profile (the profile one also on the mirrored
// image, for faces turned the other way). People: the HOG people detector
// with its built-in linear model. QR codes: QRCodeDetector, several per
// image, their text read by ZBar (zbar_qr_reader.h). Line segments: Canny
// edges and the probabilistic Hough transform.
// Large images are shrunk to kMaxDetectionSide on their longer side first
// (faces and bodies smaller than that loses are too small to recognise);
// results are scaled back to the image's pixels.
//
// Thread rules: safe from any thread. The cascades are loaded on first use
// and shared under a lock (a cascade is not safe to run on two threads).
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/image_detector.h"

namespace klipora {

class OpenCvImageDetector final : public ImageDetector {
 public:
  static constexpr int kMaxDetectionSide = 1600;

  // `cascadeFolder` holds haarcascade_frontalface_default.xml and
  // haarcascade_profileface.xml.
  explicit OpenCvImageDetector(
      std::string cascadeFolder = "/usr/share/opencv4/haarcascades");
  ~OpenCvImageDetector() override;

  Result<std::vector<ImageRect>> detectFaces(const PixelImage& image) override;
  Result<std::vector<ImageRect>> detectPeople(const PixelImage& image) override;
  Result<std::vector<DetectedCode>> detectQRCodes(const PixelImage& image) override;
  Result<std::vector<LineSegment>> detectLineSegments(const PixelImage& image) override;

 private:
  struct Cascades;
  std::string cascadeFolder_;
  std::mutex mutex_;
  std::unique_ptr<Cascades> cascades_;
};

}  // namespace klipora
