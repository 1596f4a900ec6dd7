#include "platform/testing/fake_ocr_engine.h"

#include <algorithm>

namespace klipora::testing {
namespace {

bool Inside(const OcrBox& inner, const OcrBox& outer) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom && inner.left < inner.right && inner.top < inner.bottom;
}

OcrObservation Line(const OcrBox& box) { return {"text", 0.9f, box, {box}, {}}; }

}  // namespace

class FakeOcrEngineFactory::Engine final : public OcrEngine {
 public:
  explicit Engine(FakeOcrEngineFactory& factory) : factory_(factory) {}

  Result<std::vector<OcrObservation>> recognize(const OcrRequest& request) override {
    const PixelImage* image = request.image;
    if (image == nullptr || image->empty()) {
      return Err(Status::InvalidArgument("no pixels to recognise"));
    }
    OcrBox whole{0, 0, image->width, image->height};
    if (request.region != OcrBox{} && !Inside(request.region, whole)) {
      return Err(Status::InvalidArgument("the region lies outside the image"));
    }
    for (const OcrBox& line : request.lines) {
      if (!Inside(line, whole)) return Err(Status::InvalidArgument("a line lies outside"));
    }
    factory_.record(request);
    Result<std::vector<OcrObservation>> lines =
        factory_.respond ? factory_.respond(request) : defaultLines(request);
    if (request.shouldStop && request.shouldStop()) {
      return Err(Status::Cancelled("recognition was abandoned"));
    }
    return lines;
  }

 private:
  FakeOcrEngineFactory& factory_;
};

Result<std::unique_ptr<OcrEngine>> FakeOcrEngineFactory::makeEngine(
    const std::vector<std::string>& languages) {
  {
    std::lock_guard lock(mutex_);
    loads_.push_back(languages);
  }
  if (duringLoad) duringLoad();
  for (const std::string& code : languages) {
    if (!installed.count(code)) {
      return Err(Status::NotFound("the text recognition language \"" + code +
                                  "\" is not installed; install the Debian package "
                                  "tesseract-ocr-" + code));
    }
  }
  return std::unique_ptr<OcrEngine>(new Engine(*this));
}

std::vector<OcrLanguage> FakeOcrEngineFactory::languages() {
  std::set<std::string> all = known;
  all.insert(installed.begin(), installed.end());
  std::vector<OcrLanguage> out;
  for (const std::string& code : all) {
    std::string package = "tesseract-ocr-" + code;
    std::replace(package.begin(), package.end(), '_', '-');
    out.push_back({code, package, installed.count(code) > 0});
  }
  return out;
}

std::vector<OcrObservation> FakeOcrEngineFactory::defaultLines(const OcrRequest& request) {
  const PixelImage& image = *request.image;
  if (request.level == OcrLevel::lines) {
    std::vector<OcrObservation> lines;
    for (const OcrBox& box : request.lines) lines.push_back(Line(box));
    return lines;
  }
  bool blank = std::all_of(image.pixels.begin(), image.pixels.end(),
                           [&](uint8_t p) { return p == image.pixels.front(); });
  if (blank) return {};
  OcrBox region = request.region == OcrBox{} ? OcrBox{0, 0, image.width, image.height}
                                             : request.region;
  return {Line(region)};
}

void FakeOcrEngineFactory::record(const OcrRequest& request) {
  std::lock_guard lock(mutex_);
  requests_.push_back({request.level, request.image->width, request.image->height, request.lines,
                       request.characterBoxes, request.darkOnLight});
}

std::vector<FakeOcrEngineFactory::Recorded> FakeOcrEngineFactory::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<std::vector<std::string>> FakeOcrEngineFactory::loads() const {
  std::lock_guard lock(mutex_);
  return loads_;
}

}  // namespace klipora::testing
