#include "processing/ocr_service.h"

#include <algorithm>
#include <cmath>

#include "platform/log.h"
#include "platform/sha256.h"
#include "processing/ocr_hang_guard.h"
#include "processing/ocr_layout.h"
#include "processing/ocr_tiling.h"

namespace klipora::processing {
namespace {

constexpr char kArea[] = "Processing";
// Smaller than any glyph the recogniser can read; such images hold no text.
constexpr int kMinRecognizableSide = 8;
// Recovered lines less sure than this are mostly icons and controls.
constexpr float kRecoveredConfidence = 0.7f;

OCRRect Normalized(const OcrBox& box, double width, double height) {
  return {box.left / width, 1.0 - box.bottom / height, (box.right - box.left) / width,
          (box.bottom - box.top) / height};
}

// Places each recognised symbol on the bytes of the line's text it reads as.
std::vector<OCRCharacterBox> CharacterBoxes(const std::string& text,
                                            const std::vector<OcrCharacter>& characters,
                                            const std::function<OCRRect(OcrBox)>& toRect) {
  std::vector<OCRCharacterBox> boxes;
  size_t cursor = 0;
  for (const OcrCharacter& c : characters) {
    size_t at = text.find(c.text, cursor);
    if (at == std::string::npos) continue;
    boxes.push_back({at, c.text.size(), toRect(c.box)});
    cursor = at + c.text.size();
  }
  return boxes;
}

// Reads one prepared tile, then the text its page layout left out. Runs on a
// thread the hang guard may leave behind, so it reads only its arguments.
Result<std::vector<OcrObservation>> ReadTile(OcrEngine& engine, const PreparedImage& prepared,
                                             OcrRequest& request, bool recoverDroppedText) {
  request.image = &prepared.image;
  request.lines.clear();
  ASSIGN_OR_RETURN(std::vector<OcrObservation> lines, engine.recognize(request));
  if (request.level != OcrLevel::accurate || !recoverDroppedText || prepared.image.channels != 1) {
    return lines;
  }

  // Text the page layout left out: ink shapes no word covers, read a line
  // at a time.
  std::vector<OcrBox> words;
  for (const OcrObservation& line : lines) {
    words.insert(words.end(), line.words.begin(), line.words.end());
  }
  const PixelImage& image = prepared.image;
  std::vector<OcrBox> lost = uncoveredShapes(textShapes(image, prepared.glyphHeight), words);
  if (lost.empty()) return lines;
  OcrRequest recovery = request;
  recovery.level = OcrLevel::lines;
  recovery.lines = groupIntoLines(std::move(lost), prepared.glyphHeight, image.width, image.height);
  ASSIGN_OR_RETURN(std::vector<OcrObservation> found, engine.recognize(recovery));
  // Icons and controls read as letters with little confidence.
  std::erase_if(found, [](const OcrObservation& o) { return o.confidence < kRecoveredConfidence; });
  mergeRecoveredLines(lines, std::move(found));
  return lines;
}

}  // namespace

struct OCRService::Attempt {
  enum class Outcome { ok, hung, stillLoading, loadFailed, engineFailed };
  Outcome outcome = Outcome::ok;
  std::vector<OCRLine> lines;
  Status status;
};

OCRService::OCRService(OcrEngineFactory& engines, ImageCodec& codec, Clock& clock,
                       OCRServiceConfig config)
    : codec_(codec),
      clock_(clock),
      config_(std::move(config)),
      pool_(engines, config_.languages, config_.engineCount) {}

OCRService::~OCRService() { stopKeepWarm(); }

OCRResultOrError OCRService::recognizeTextWithLayout(std::string_view encodedImage,
                                                     const OCROptions& options) {
  JobKey key{options.contentKey.empty() ? sha256Hex(encodedImage) : options.contentKey,
             options.fastOnly, options.characterBoxes, options.job};
  return blockingVision_.run(key, [&]() -> OCRResultOrError {
    PixelDecodeOptions decode;
    decode.maxPixels = config_.maxDecodedPixels;
    if (!config_.preparation.greyscale) decode.format = PixelDecodeOptions::Format::rgba;
    auto pixels = codec_.decodePixels(encodedImage, decode);
    if (!pixels) return tl::unexpected(OCRError::unreadableImage(pixels.error().message()));
    return recognizePixels(std::move(*pixels), options);
  });
}

OCRResultOrError OCRService::recognizeTextWithLayout(const PixelImage& image,
                                                     const OCROptions& options) {
  std::string key = options.contentKey;
  if (key.empty()) {
    // The shape beside the checksum of the pixels, which are hashed in place.
    key = std::to_string(image.width) + "x" + std::to_string(image.height) + "x" +
          std::to_string(image.channels) + ":" +
          sha256Hex({reinterpret_cast<const char*>(image.pixels.data()), image.pixels.size()});
  }
  return blockingVision_.run(
      {key, options.fastOnly, options.characterBoxes, options.job}, [&]() -> OCRResultOrError {
        if (image.empty() ||
            image.pixels.size() < static_cast<size_t>(image.bytesPerRow()) * image.height) {
          return tl::unexpected(OCRError::unreadableImage("no pixels"));
        }
        return recognizePixels(config_.preparation.greyscale ? toGrey(image) : image, options);
      });
}

void OCRService::recognizeTextWithLayout(std::string encodedImage, OCROptions options,
                                         Executor& queue,
                                         std::function<void(OCRResultOrError)> done) {
  queue.post([this, bytes = std::move(encodedImage), options = std::move(options),
              done = std::move(done)] { done(recognizeTextWithLayout(bytes, options)); });
}

OCRResultOrError OCRService::recognizePixels(PixelImage pixels, const OCROptions& options) {
  if (!options.fastOnly) {
    Attempt accurate = recognizeAtLevel(pixels, OcrLevel::accurate, options.characterBoxes);
    switch (accurate.outcome) {
      case Attempt::Outcome::ok:
        return OCRResult::fromLines(std::move(accurate.lines));
      case Attempt::Outcome::hung:
        log::warning(kArea, "ocr accurate recognition abandoned after %.0fs",
                     config_.hangGuardSeconds);
        return tl::unexpected(OCRError::accurateHangGuardTripped());
      case Attempt::Outcome::stillLoading:
        return tl::unexpected(OCRError::recognizerStillLoading());
      case Attempt::Outcome::loadFailed:
        return tl::unexpected(OCRError::recognizerUnavailable(accurate.status.message()));
      case Attempt::Outcome::engineFailed:
        log::warning(kArea, "ocr accurate recognition failed: %s",
                     accurate.status.message().c_str());
        break;
    }
  }
  Attempt fast = recognizeAtLevel(pixels, OcrLevel::fast, options.characterBoxes);
  switch (fast.outcome) {
    case Attempt::Outcome::ok:
      if (!options.fastOnly) {
        log::info(kArea, "ocr-fallback .fast lines=%d", static_cast<int>(fast.lines.size()));
      }
      return OCRResult::fromLines(std::move(fast.lines));
    case Attempt::Outcome::stillLoading:
      return tl::unexpected(OCRError::recognizerStillLoading());
    case Attempt::Outcome::hung:
      return tl::unexpected(OCRError::recognizerUnavailable("fast recognition ran too long"));
    case Attempt::Outcome::loadFailed:
    case Attempt::Outcome::engineFailed:
      break;
  }
  return tl::unexpected(OCRError::recognizerUnavailable(fast.status.message()));
}

OCRService::Attempt OCRService::recognizeAtLevel(const PixelImage& grey, OcrLevel level,
                                                 bool characterBoxes) {
  Attempt attempt;
  if (grey.width < kMinRecognizableSide || grey.height < kMinRecognizableSide) return attempt;
  auto lease = pool_.acquire(config_.engineWaitSeconds);
  if (!lease) {
    attempt.outcome =
        lease.error().stillLoading ? Attempt::Outcome::stillLoading : Attempt::Outcome::loadFailed;
    attempt.status = lease.error().status;
    return attempt;
  }
  const double deadline = clock_.monotonicSeconds() + config_.hangGuardSeconds;
  OcrRequest request;
  request.level = level;
  request.characterBoxes = characterBoxes;
  request.darkOnLight = config_.preparation.greyscale && config_.preparation.normalizeInk;

  const OcrBox whole{0, 0, grey.width, grey.height};
  for (const OcrBox& tile : planTiles(grey, config_.maxTileSide)) {
    // Prepared per tile and per level: a fallback is rare, and holding every
    // prepared tile at once would double the memory of a huge screenshot.
    auto prepared = std::make_shared<const PreparedImage>(
        prepareForRecognition(tile == whole ? grey : cropGrey(grey, tile), config_.preparation));
    const PixelImage& source = prepared->image;
    if (source.width < kMinRecognizableSide || source.height < kMinRecognizableSide) continue;
    auto observations =
        raceHangGuard(*lease, clock_, deadline,
                      [prepared, request, recover = config_.recoverDroppedText](
                          OcrEngine& engine, std::function<bool()> shouldStop) mutable {
                        request.shouldStop = std::move(shouldStop);
                        return ReadTile(engine, *prepared, request, recover);
                      });
    if (!observations) {
      lease->discard();
      attempt.status = observations.error();
      attempt.outcome = observations.error().code() == Status::Code::kCancelled
                            ? Attempt::Outcome::hung
                            : Attempt::Outcome::engineFailed;
      attempt.lines.clear();
      return attempt;
    }
    const double sx = static_cast<double>(source.width) / (tile.right - tile.left);
    const double sy = static_cast<double>(source.height) / (tile.bottom - tile.top);
    auto toRect = [&](const OcrBox& b) {
      OcrBox mapped{tile.left + static_cast<int>(b.left / sx),
                    tile.top + static_cast<int>(b.top / sy),
                    tile.left + static_cast<int>(std::ceil(b.right / sx)),
                    tile.top + static_cast<int>(std::ceil(b.bottom / sy))};
      return Normalized(mapped, grey.width, grey.height);
    };
    for (OcrObservation& o : *observations) {
      OCRLine line;
      line.boundingBox = toRect(o.box);
      line.confidence = o.confidence;
      if (characterBoxes) line.characterBoxes = CharacterBoxes(o.text, o.characters, toRect);
      line.text = std::move(o.text);
      attempt.lines.push_back(std::move(line));
    }
  }
  return attempt;
}

std::vector<std::string> recognitionLanguages(const UserDefaults& defaults) {
  std::vector<std::string> languages = defaults.stringListForKey(kRecognitionLanguagesKey);
  std::erase_if(languages, [](const std::string& code) { return code.empty(); });
  if (languages.empty()) languages.push_back("eng");
  return languages;
}

void OCRService::setLanguages(std::vector<std::string> languages) {
  pool_.setLanguages(std::move(languages));
}

void OCRService::setWarmImageModels(std::function<void(const PixelImage&)> warm) {
  warmImageModels_ = std::move(warm);
}

}  // namespace klipora::processing
