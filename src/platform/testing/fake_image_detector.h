// FakeImageDetector: an ImageDetector that reports what the test put in it,
// or fails with `failure` when that is set. Counts the calls of each kind.
//
// Thread rules: set the answers before use; calls may then run on any thread.
#pragma once

#include <atomic>
#include <optional>

#include "platform/image_detector.h"

namespace klipora::testing {

class FakeImageDetector final : public ImageDetector {
 public:
  Result<std::vector<ImageRect>> detectFaces(const PixelImage& image) override {
    return answer(image, faces, faceCalls);
  }
  Result<std::vector<ImageRect>> detectPeople(const PixelImage& image) override {
    return answer(image, people, peopleCalls);
  }
  Result<std::vector<DetectedCode>> detectQRCodes(const PixelImage& image) override {
    return answer(image, codes, codeCalls);
  }
  Result<std::vector<LineSegment>> detectLineSegments(const PixelImage& image) override {
    return answer(image, segments, segmentCalls);
  }

  std::vector<ImageRect> faces;
  std::vector<ImageRect> people;
  std::vector<DetectedCode> codes;
  std::vector<LineSegment> segments;
  std::optional<Status> failure;
  std::atomic<int> faceCalls{0}, peopleCalls{0}, codeCalls{0}, segmentCalls{0};

 private:
  template <typename T>
  Result<std::vector<T>> answer(const PixelImage& image, const std::vector<T>& value,
                                std::atomic<int>& calls) {
    ++calls;
    if (image.empty()) return tl::unexpected(Status::InvalidArgument("no pixels to detect in"));
    if (failure) return tl::unexpected(*failure);
    return value;
  }
};

}  // namespace klipora::testing
