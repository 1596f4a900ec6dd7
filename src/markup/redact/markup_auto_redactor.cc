#include "markup/redact/markup_auto_redactor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <tuple>

#include "markup/redact/markup_redaction_patterns.h"
#include "markup/redact/recognised_token_repair.h"
#include "platform/localization.h"
#include "platform/sha256.h"

namespace klipora::markup {
namespace {

using Detection = MarkupAutoRedactor::Detection;
using DetectError = MarkupAutoRedactor::DetectError;
using Kind = MarkupAutoRedactor::Kind;
using processing::OCRLine;
using processing::OCRRect;

constexpr char kRecognitionJob[] = "auto-redact";
// Large enough for any screen; larger images are shrunk while decoding.
constexpr int64_t kMaxDecodedPixels = 100'000'000;

constexpr std::array<std::string_view, 14> kKindNames = {
    "allText",     "email",      "phone",  "creditCard", "ipv4",   "ipv6", "awsAccessKey",
    "jwt",         "githubToken", "slackToken", "apiKey", "secret", "face", "person"};

// Which kind a merged detection keeps: the lower rank. The narrow token
// formats first; the loose ones (phone numbers match card numbers, dates and
// parts of addresses) last among the patterns, so that "4111 1111 1111 1111"
// stays a card although the phone pattern also finds it.
int Rank(Kind kind) {
  switch (kind) {
    case Kind::awsAccessKey: return 0;
    case Kind::jwt: return 1;
    case Kind::githubToken: return 2;
    case Kind::slackToken: return 3;
    case Kind::apiKey: return 4;
    case Kind::email: return 5;
    case Kind::creditCard: return 6;
    case Kind::ipv4: return 7;
    case Kind::ipv6: return 8;
    case Kind::secret: return 9;
    case Kind::phone: return 10;
    case Kind::allText: return 11;
    case Kind::face: return 12;
    case Kind::person: return 13;
  }
  return 14;
}

bool Overlap(const Rect& a, const Rect& b) {
  return a.minX() < b.maxX() && b.minX() < a.maxX() && a.minY() < b.maxY() && b.minY() < a.maxY();
}

Rect Union(const Rect& a, const Rect& b) {
  double x = std::min(a.minX(), b.minX()), y = std::min(a.minY(), b.minY());
  return Rect::make(x, y, std::max(a.maxX(), b.maxX()) - x, std::max(a.maxY(), b.maxY()) - y);
}

// Normalised, bottom-left-origin box to whole image pixels, top-left origin,
// rounded outwards (but not by the rounding error of the normalisation).
Rect ToPixels(const OCRRect& box, Size image) {
  constexpr double kSlack = 1e-6;
  double left = std::floor(box.x * image.width + kSlack);
  double top = std::floor((1.0 - box.maxY()) * image.height + kSlack);
  double right = std::ceil(box.maxX() * image.width - kSlack);
  double bottom = std::ceil((1.0 - box.y) * image.height - kSlack);
  return Rect::make(left, top, right - left, bottom - top);
}

Rect Grow(const Rect& r, double margin, Size image) {
  double left = std::max(0.0, r.minX() - margin), top = std::max(0.0, r.minY() - margin);
  double right = std::min(image.width, r.maxX() + margin);
  double bottom = std::min(image.height, r.maxY() + margin);
  return Rect::make(left, top, std::max(0.0, right - left), std::max(0.0, bottom - top));
}

// Grow, but no further into neighbouring ink than the tight box reaches
// already: above and below the lines of text around (with tight line
// spacing the margin would cover their ascenders or descenders), left and
// right the characters of the line before and after the match.
Rect GrowWithinNeighbours(const Rect& r, double margin, Size image,
                          const std::vector<Rect>& lineBoxes, size_t self,
                          std::optional<Rect> before, std::optional<Rect> after) {
  Rect grown = Grow(r, margin, image);
  const double middle = lineBoxes[self].minY() + lineBoxes[self].size.height / 2;
  double left = grown.minX(), right = grown.maxX(), top = grown.minY(), bottom = grown.maxY();
  if (before) left = std::max(left, std::min(r.minX(), before->maxX()));
  if (after) right = std::min(right, std::max(r.maxX(), after->minX()));
  for (size_t j = 0; j < lineBoxes.size(); ++j) {
    const Rect& other = lineBoxes[j];
    if (j == self || other.maxX() <= left || other.minX() >= right) continue;
    if (other.minY() + other.size.height / 2 < middle) {
      top = std::max(top, std::min(r.minY(), other.maxY()));
    } else {
      bottom = std::min(bottom, std::max(r.maxY(), other.minY()));
    }
  }
  return Rect::make(left, top, std::max(0.0, right - left), std::max(0.0, bottom - top));
}

// The boxes of the characters just before and just after bytes [begin, end).
std::pair<std::optional<OCRRect>, std::optional<OCRRect>> NeighbourBoxes(const OCRLine& line,
                                                                         size_t begin,
                                                                         size_t end) {
  std::optional<OCRRect> before, after;
  for (const auto& c : line.characterBoxes) {
    if (c.offset + c.length <= begin) before = c.box;
    if (c.offset >= end && !after) after = c.box;
  }
  return {before, after};
}

size_t CodePoints(std::string_view text, size_t end) {
  size_t n = 0;
  for (size_t i = 0; i < end && i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++n;
  }
  return n;
}

// The box of bytes [begin, end) of a line: from its character boxes, or, when
// the recogniser gave none, the matching share of the line's box.
std::optional<OCRRect> RangeBox(const OCRLine& line, size_t begin, size_t end) {
  if (!line.characterBoxes.empty()) {
    // The recogniser now and then gives the glyphs of a word it split boxes
    // twice the line's height; such a box counts only across.
    std::vector<double> heights;
    for (const auto& c : line.characterBoxes) heights.push_back(c.box.height);
    std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
    const double tallest = 1.5 * heights[heights.size() / 2];
    std::optional<OCRRect> across, band;
    for (const auto& c : line.characterBoxes) {
      if (c.offset + c.length <= begin || c.offset >= end) continue;
      across = across ? across->united(c.box) : c.box;
      if (c.box.height <= tallest) band = band ? band->united(c.box) : c.box;
    }
    if (!across || !band) return across;
    return OCRRect{across->x, band->y, across->width, band->height};
  }
  size_t total = CodePoints(line.text, line.text.size());
  if (total == 0) return std::nullopt;
  double from = static_cast<double>(CodePoints(line.text, begin)) / total;
  double to = static_cast<double>(CodePoints(line.text, end)) / total;
  OCRRect box = line.boundingBox;
  return OCRRect{box.x + from * box.width, box.y, (to - from) * box.width, box.height};
}

Detection Scaled(Detection d, double sx, double sy) {
  d.frame = Rect::make(std::floor(d.frame.minX() * sx), std::floor(d.frame.minY() * sy),
                       std::ceil(d.frame.size.width * sx), std::ceil(d.frame.size.height * sy));
  return d;
}

DetectError FromOcr(const processing::OCRError& error) {
  using Case = processing::OCRError::Case;
  switch (error.kind) {
    case Case::recognizerStillLoading:
      return {DetectError::Case::textRecognitionStillLoading, error.detail};
    case Case::recognizerUnavailable:
      return {DetectError::Case::textRecognitionUnavailable, error.detail};
    case Case::unreadableImage:
      return {DetectError::Case::unreadableImage, error.detail};
    case Case::accurateHangGuardTripped:
      break;
  }
  return DetectError::visionFailed(error.errorDescription());
}

}  // namespace

std::string DetectError::errorDescription() const {
  switch (kind) {
    case Case::visionFailed:
      // TRANSLATORS: automatic redaction failed; followed by the reason.
      return tr("Auto-redact failed: ") + message;
    case Case::unreadableImage:
      // TRANSLATORS: the image to redact could not be decoded.
      return tr("Could not read image pixels for OCR.");
    case Case::textRecognitionUnavailable:
      // TRANSLATORS: text recognition did not answer; nothing was covered.
      return tr("Couldn't scan for text. Nothing redacted. Try again in a minute.");
    case Case::textRecognitionStillLoading:
      // TRANSLATORS: the text recogniser is still loading; nothing was covered.
      return tr("Text scanner still loading. Nothing redacted. Try again shortly.");
  }
  return {};
}

MarkupAutoRedactor::MarkupAutoRedactor(processing::OCRService& ocr, ImageCodec& codec,
                                       ImageDetector* detector)
    : ocr_(ocr), codec_(codec), detector_(detector) {}

MarkupAutoRedactor::Detections MarkupAutoRedactor::detect(std::string_view encodedImage,
                                                          const DetectionOptions& options) const {
  auto properties = codec_.properties(encodedImage);
  if (!properties) return tl::unexpected(DetectError{DetectError::Case::unreadableImage,
                                                     properties.error().message()});
  PixelDecodeOptions decode;
  decode.maxPixels = kMaxDecodedPixels;
  auto pixels = codec_.decodePixels(encodedImage, decode);
  if (!pixels) {
    return tl::unexpected(
        DetectError{DetectError::Case::unreadableImage, pixels.error().message()});
  }
  auto found = detect(*pixels, sha256Hex(encodedImage), options);
  if (!found) return found;
  // Frames in the source's pixels when the decoder shrank the image.
  bool turned = properties->orientation >= 5 && properties->orientation <= 8;
  double width = turned ? properties->height : properties->width;
  double height = turned ? properties->width : properties->height;
  if (pixels->width > 0 && (width != pixels->width || height != pixels->height)) {
    for (Detection& d : *found) d = Scaled(d, width / pixels->width, height / pixels->height);
  }
  return found;
}

MarkupAutoRedactor::Detections MarkupAutoRedactor::detect(const PixelImage& image,
                                                          const std::string& identity,
                                                          const DetectionOptions& options) const {
  if (image.empty() ||
      image.pixels.size() < static_cast<size_t>(image.bytesPerRow()) * image.height) {
    return tl::unexpected(DetectError{DetectError::Case::unreadableImage, "no pixels"});
  }
  auto detections = tightDetections(image, identity, options);
  if (!detections) return detections;
  if (detector_ != nullptr && (options.includeFaces || options.includePeople)) {
    auto add = [&](Result<std::vector<ImageRect>> rects, Kind kind) -> Status {
      if (!rects) return rects.error();
      for (const ImageRect& r : *rects) {
        detections->push_back({kind, Rect::make(r.x, r.y, r.width, r.height), {}});
      }
      return Status::Ok();
    };
    Status status;
    if (options.includeFaces) status = add(detector_->detectFaces(image), Kind::face);
    if (status.ok() && options.includePeople) {
      status = add(detector_->detectPeople(image), Kind::person);
    }
    if (!status.ok()) return tl::unexpected(DetectError::visionFailed(status.message()));
  }
  return mergeOverlapping(std::move(*detections));
}

MarkupAutoRedactor::Detections MarkupAutoRedactor::tightDetections(
    const PixelImage& image, const std::string& identity, const DetectionOptions& options) const {
  if (!options.includePII && !options.includeAllText) return std::vector<Detection>{};
  processing::OCROptions ocr;
  ocr.characterBoxes = true;
  ocr.contentKey = identity;
  ocr.job = kRecognitionJob;
  auto result = ocr_.recognizeTextWithLayout(image, ocr);
  if (!result) return tl::unexpected(FromOcr(result.error()));
  return scanText(result->lines, Size{static_cast<double>(image.width),
                                      static_cast<double>(image.height)},
                  options.includePII, options.includeAllText);
}

std::vector<Detection> MarkupAutoRedactor::scanText(const std::vector<OCRLine>& observations,
                                                    Size imageSize, bool includePII,
                                                    bool includeAllText) {
  std::vector<Detection> detections;
  if (includeAllText) {
    for (const OCRLine& line : observations) {
      if (line.text.empty()) continue;
      detections.push_back({Kind::allText,
                            Grow(ToPixels(line.boundingBox, imageSize), kTextMargin, imageSize),
                            line.text});
    }
  }
  if (!includePII) return detections;
  const std::vector<OCRLine> rows = joinLinesOfOneRow(observations, imageSize);
  std::vector<Rect> lineBoxes;
  for (const OCRLine& line : rows) lineBoxes.push_back(ToPixels(line.boundingBox, imageSize));
  for (size_t index = 0; index < rows.size(); ++index) {
    const OCRLine& line = rows[index];
    // First the text as read, then as repaired (tokens rejoined, look-alike
    // glyphs and key prefixes restored) where that differs; a match of the
    // repaired text that spans a rejoined blank drops the words at its ends
    // that the match does not need (a label before a key).
    std::vector<std::tuple<Kind, size_t, size_t>> found;
    auto add = [&](Kind kind, size_t begin, size_t end) {
      if (std::find(found.begin(), found.end(), std::tuple{kind, begin, end}) != found.end()) {
        return;
      }
      found.emplace_back(kind, begin, end);
      std::optional<OCRRect> box = RangeBox(line, begin, end);
      if (!box) return;
      auto [before, after] = NeighbourBoxes(line, begin, end);
      auto pixels = [&](const std::optional<OCRRect>& b) {
        return b ? std::optional<Rect>(ToPixels(*b, imageSize)) : std::nullopt;
      };
      detections.push_back({kind,
                            GrowWithinNeighbours(ToPixels(*box, imageSize), kTextMargin,
                                                 imageSize, lineBoxes, index, pixels(before),
                                                 pixels(after)),
                            line.text.substr(begin, end - begin)});
    };
    for (const RedactionPattern& pattern : redactionPatterns()) {
      pattern.forEachMatch(line.text, [&](size_t begin, size_t end) {
        add(pattern.kind(), begin, end);
      });
    }
    RepairedLine repaired = repairForMatching(line, imageSize);
    if (repaired.text == line.text) continue;
    for (const RedactionPattern& pattern : redactionPatterns()) {
      // The loose kinds match runs of ordinary words and numbers too: they
      // take no shape join.
      const Kind kind = pattern.kind();
      const bool loose = kind == Kind::secret || kind == Kind::phone ||
                         kind == Kind::creditCard || kind == Kind::ipv4;
      pattern.forEachMatch(repaired.text, [&](size_t begin, size_t end) {
        repaired.trimToNeededPieces(pattern, begin, end);
        if (loose && repaired.shapeJoinsInside(begin, end)) return;
        auto [from, to] = repaired.originalRange(line.text, begin, end);
        if (from < to) add(pattern.kind(), from, to);
      });
    }
  }
  return detections;
}

std::vector<Detection> MarkupAutoRedactor::mergeOverlapping(std::vector<Detection> detections) {
  // Each detection absorbs every kept one it overlaps, growing as it does,
  // before it is kept itself; so no two kept detections overlap.
  std::vector<Detection> kept;
  kept.reserve(detections.size());
  for (Detection& d : detections) {
    bool grew = true;
    while (grew) {
      grew = false;
      for (size_t i = 0; i < kept.size(); ++i) {
        if (!Overlap(kept[i].frame, d.frame)) continue;
        Detection other = std::move(kept[i]);
        kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
        Rect frame = Union(other.frame, d.frame);
        if (other.kind == Kind::allText && d.kind == Kind::allText) {
          // Lines merged into a block read in their order.
          d.snippet = other.snippet + "\n" + d.snippet;
        } else if (Rank(other.kind) < Rank(d.kind)) {
          d = std::move(other);
        }
        d.frame = frame;
        grew = true;
        break;
      }
    }
    kept.push_back(std::move(d));
  }
  return kept;
}

std::string_view MarkupAutoRedactor::kindName(Kind kind) {
  return kKindNames[static_cast<size_t>(kind)];
}

std::optional<Kind> MarkupAutoRedactor::kindNamed(std::string_view name) {
  for (size_t i = 0; i < kKindNames.size(); ++i) {
    if (kKindNames[i] == name) return static_cast<Kind>(i);
  }
  return std::nullopt;
}

}  // namespace klipora::markup
