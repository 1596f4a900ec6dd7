#include "platform/linux/opencv_image_detector.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "platform/linux/zbar_qr_reader.h"

namespace klipora {
namespace {

// The image as 8-bit grey, shrunk so that its longer side is at most
// `maxSide`; *scale is the factor back to the image's pixels.
Result<cv::Mat> Grey(const PixelImage& image, int maxSide, double* scale) {
  if (image.empty() || image.channels < 1 || image.channels > 4 || image.channels == 2 ||
      image.pixels.size() < static_cast<size_t>(image.bytesPerRow()) * image.height) {
    return tl::unexpected(Status::InvalidArgument("no pixels to detect in"));
  }
  cv::Mat source(image.height, image.width, CV_8UC(image.channels),
                 const_cast<uint8_t*>(image.pixels.data()));
  cv::Mat grey;
  if (image.channels == 1) grey = source;
  if (image.channels == 3) cv::cvtColor(source, grey, cv::COLOR_RGB2GRAY);
  if (image.channels == 4) cv::cvtColor(source, grey, cv::COLOR_RGBA2GRAY);
  *scale = 1;
  int longer = std::max(image.width, image.height);
  if (maxSide > 0 && longer > maxSide) {
    *scale = static_cast<double>(longer) / maxSide;
    cv::Mat small;
    cv::resize(grey, small, cv::Size(), 1 / *scale, 1 / *scale, cv::INTER_AREA);
    return small;
  }
  return grey.data == source.data ? grey.clone() : grey;
}

ImageRect Back(const cv::Rect& r, double scale, const PixelImage& image) {
  int x = std::clamp(static_cast<int>(std::floor(r.x * scale)), 0, image.width);
  int y = std::clamp(static_cast<int>(std::floor(r.y * scale)), 0, image.height);
  int right = std::clamp(static_cast<int>(std::ceil((r.x + r.width) * scale)), x, image.width);
  int bottom = std::clamp(static_cast<int>(std::ceil((r.y + r.height) * scale)), y, image.height);
  return {x, y, right - x, bottom - y};
}

// OpenCV reports failures by throwing; this is the one file that calls it.
template <typename T, typename F>
Result<T> Guarded(const char* what, F&& work) {
  try {
    return work();
  } catch (const cv::Exception& e) {
    return tl::unexpected(Status::Internal(std::string(what) + " failed: " + e.what()));
  } catch (const std::exception& e) {
    return tl::unexpected(Status::Internal(std::string(what) + " failed: " + e.what()));
  }
}

// Gives each code OpenCV found the text ZBar read where they lie on each
// other (the most overlapping one); a code only ZBar found is added.
void AddPayloads(std::vector<DetectedCode>& codes, const std::vector<ReadQRCode>& read) {
  auto overlap = [](const ImageRect& a, const ImageRect& b) {
    int w = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
    int h = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
    return w > 0 && h > 0 ? static_cast<int64_t>(w) * h : 0;
  };
  for (const ReadQRCode& r : read) {
    DetectedCode* best = nullptr;
    int64_t bestArea = 0;
    for (DetectedCode& code : codes) {
      int64_t area = overlap(code.frame, r.frame);
      if (area > bestArea) best = &code, bestArea = area;
    }
    if (best == nullptr) {
      codes.push_back({r.frame, r.payload});
    } else if (best->payload.empty()) {
      best->payload = r.payload;
    }
  }
}

}  // namespace

struct OpenCvImageDetector::Cascades {
  cv::CascadeClassifier frontal;
  cv::CascadeClassifier profile;
};

OpenCvImageDetector::OpenCvImageDetector(std::string cascadeFolder)
    : cascadeFolder_(std::move(cascadeFolder)) {}

OpenCvImageDetector::~OpenCvImageDetector() = default;

Result<std::vector<ImageRect>> OpenCvImageDetector::detectFaces(const PixelImage& image) {
  double scale = 1;
  ASSIGN_OR_RETURN(cv::Mat grey, Grey(image, kMaxDetectionSide, &scale));
  return Guarded<std::vector<ImageRect>>("face detection", [&]() -> Result<std::vector<ImageRect>> {
    std::lock_guard lock(mutex_);
    if (!cascades_) {
      auto loaded = std::make_unique<Cascades>();
      std::string frontal = cascadeFolder_ + "/haarcascade_frontalface_default.xml";
      std::string profile = cascadeFolder_ + "/haarcascade_profileface.xml";
      if (!loaded->frontal.load(frontal) || !loaded->profile.load(profile)) {
        return tl::unexpected(Status::Unavailable(
            "the face models are missing (" + frontal +
            "); install the Debian package opencv-data"));
      }
      cascades_ = std::move(loaded);
    }
    cv::Mat equalised;
    cv::equalizeHist(grey, equalised);
    const cv::Size smallest(24, 24);
    std::vector<cv::Rect> found, profiles, mirrored;
    cascades_->frontal.detectMultiScale(equalised, found, 1.1, 5, 0, smallest);
    cascades_->profile.detectMultiScale(equalised, profiles, 1.1, 5, 0, smallest);
    cv::Mat flipped;
    cv::flip(equalised, flipped, 1);
    cascades_->profile.detectMultiScale(flipped, mirrored, 1.1, 5, 0, smallest);
    found.insert(found.end(), profiles.begin(), profiles.end());
    for (cv::Rect r : mirrored) {
      r.x = flipped.cols - r.x - r.width;
      found.push_back(r);
    }
    std::vector<ImageRect> faces;
    for (const cv::Rect& r : found) faces.push_back(Back(r, scale, image));
    return faces;
  });
}

Result<std::vector<ImageRect>> OpenCvImageDetector::detectPeople(const PixelImage& image) {
  double scale = 1;
  ASSIGN_OR_RETURN(cv::Mat grey, Grey(image, kMaxDetectionSide, &scale));
  return Guarded<std::vector<ImageRect>>("people detection", [&]() -> Result<std::vector<ImageRect>> {
    std::vector<ImageRect> people;
    // The model's window is 64 × 128: a smaller image holds nobody it can see.
    if (grey.cols < 64 || grey.rows < 128) return people;
    cv::HOGDescriptor hog;
    hog.setSVMDetector(cv::HOGDescriptor::getDefaultPeopleDetector());
    std::vector<cv::Rect> found;
    std::vector<double> weights;
    hog.detectMultiScale(grey, found, weights, 0, cv::Size(8, 8), cv::Size(), 1.05, 2);
    for (size_t i = 0; i < found.size(); ++i) {
      // Weak answers are mostly furniture and window edges.
      if (i < weights.size() && weights[i] < 0.5) continue;
      people.push_back(Back(found[i] & cv::Rect(0, 0, grey.cols, grey.rows), scale, image));
    }
    return people;
  });
}

Result<std::vector<DetectedCode>> OpenCvImageDetector::detectQRCodes(const PixelImage& image) {
  double scale = 1;
  // Codes are read at full size: their modules may be a few pixels wide.
  ASSIGN_OR_RETURN(cv::Mat grey, Grey(image, 0, &scale));
  return Guarded<std::vector<DetectedCode>>("QR code detection", [&]() -> Result<std::vector<DetectedCode>> {
    cv::QRCodeDetector detector;
    std::vector<std::string> payloads;
    std::vector<cv::Point2f> corners;
    std::vector<DetectedCode> codes;
    if (!detector.detectAndDecodeMulti(grey, payloads, corners)) {
      // The single-code detector finds some codes the multi-code one misses.
      std::vector<cv::Point2f> single;
      std::string payload = detector.detectAndDecode(grey, single);
      payloads = {payload};
      corners = single.size() == 4 ? single : std::vector<cv::Point2f>{};
    }
    for (size_t i = 0; i + 3 < corners.size(); i += 4) {
      std::vector<cv::Point2f> quad(corners.begin() + static_cast<std::ptrdiff_t>(i),
                                    corners.begin() + static_cast<std::ptrdiff_t>(i + 4));
      DetectedCode code;
      code.frame = Back(cv::boundingRect(quad), scale, image);
      if (i / 4 < payloads.size()) code.payload = payloads[i / 4];
      codes.push_back(std::move(code));
    }
    AddPayloads(codes, readQRCodes(grey.data, grey.cols, grey.rows, static_cast<int>(grey.step)));
    return codes;
  });
}

Result<std::vector<LineSegment>> OpenCvImageDetector::detectLineSegments(const PixelImage& image) {
  double scale = 1;
  ASSIGN_OR_RETURN(cv::Mat grey, Grey(image, kMaxDetectionSide, &scale));
  return Guarded<std::vector<LineSegment>>("line detection", [&]() -> Result<std::vector<LineSegment>> {
    cv::Mat edges;
    cv::Canny(grey, edges, 50, 150);
    std::vector<cv::Vec4i> found;
    const double minLength = std::max(20, std::min(grey.cols, grey.rows) / 8);
    // A resolution of a tenth of a degree: tilts worth correcting are small.
    cv::HoughLinesP(edges, found, 1, CV_PI / 1800, 60, minLength, 3);
    std::vector<LineSegment> segments;
    for (const cv::Vec4i& l : found) {
      segments.push_back({l[0] * scale, l[1] * scale, l[2] * scale, l[3] * scale});
    }
    return segments;
  });
}

}  // namespace klipora
