// MarkupAutoRedactor: finds the sensitive parts of a screenshot (personal
// data, secrets and tokens, optionally every line of text, faces and people)
// and returns their rectangles, for the editor to cover with redaction layers
// in one step.
//
// Text: the image is recognised once with per-character boxes, as the shared
// recognition job "auto-redact" (concurrent requests for one image share one
// run); every line is matched against the sixteen patterns of
// markup_redaction_patterns.h, and each match becomes a detection whose frame
// is the tight box of exactly the matched characters. Faces and people come
// from the platform's image detector. Overlapping detections are merged.
//
// Margin: every text detection (the patterns' kinds and allText) is grown by
// kTextMargin pixels on each side, clipped to the image, before merging:
// recognised character boxes hug the ink, and anti-aliased edges, accents
// and descenders reach a pixel or two beyond them. A match's margin stops
// at the neighbouring ink: above and below at the lines of text around, left
// and right at the characters before and after it (so that tightly set text
// around a secret stays readable); lines of allText keep it whole, to merge
// into blocks. Faces and people keep the
// detector's rectangles, which already include a border around the face or
// body.
//
// A merged detection keeps the kind that ranks first: the patterns' kinds in
// table order, then allText, face and person; its snippet is that
// detection's (lines merged into a block of allText keep all their text).
//
// Thread rules: stateless apart from the references it holds; detect may run
// on several threads at once (the recognition service and detector are
// thread-safe). Run it off the main thread: it blocks on recognition.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tl/expected.hpp>
#include <vector>

#include "markup/markup_values.h"
#include "platform/image_codec.h"
#include "platform/image_detector.h"
#include "platform/pixel_image.h"
#include "processing/ocr_result.h"
#include "processing/ocr_service.h"

namespace klipora::markup {

class MarkupAutoRedactor {
 public:
  enum class Kind {
    allText,
    email,
    phone,
    creditCard,
    ipv4,
    ipv6,
    awsAccessKey,
    jwt,
    githubToken,
    slackToken,
    apiKey,
    secret,
    face,
    person,
  };

  struct Detection {
    Kind kind = Kind::allText;
    Rect frame;           // source-image pixels, top-left origin
    std::string snippet;  // the matched text; empty for faces and people
    bool operator==(const Detection&) const = default;
  };

  struct DetectionOptions {
    bool includePII = true;
    bool includeAllText = false;
    bool includeFaces = false;
    bool includePeople = false;
  };

  struct DetectError {
    enum class Case { visionFailed, unreadableImage, textRecognitionUnavailable,
                      textRecognitionStillLoading };
    Case kind = Case::visionFailed;
    std::string message;  // visionFailed's message; a detail for logs otherwise

    static DetectError visionFailed(std::string message) {
      return {Case::visionFailed, std::move(message)};
    }
    // The text users see; each says that nothing was redacted, or why not.
    std::string errorDescription() const;
  };

  using Detections = tl::expected<std::vector<Detection>, DetectError>;

  static constexpr double kTextMargin = 4;

  // `detector` may be null: faces and people are then never found.
  MarkupAutoRedactor(processing::OCRService& ocr, ImageCodec& codec,
                     ImageDetector* detector = nullptr);

  // Decodes `encodedImage` and detects in it. unreadableImage when it does
  // not decode.
  Detections detect(std::string_view encodedImage, const DetectionOptions& options) const;
  // Detects in decoded pixels; `identity` names the image's content for job
  // sharing (its checksum), computed from the pixels when empty.
  Detections detect(const PixelImage& image, const std::string& identity,
                    const DetectionOptions& options) const;
  // The text part alone (nothing unless includePII or includeAllText).
  Detections tightDetections(const PixelImage& image, const std::string& identity,
                             const DetectionOptions& options) const;

  // Recognised lines to detections (unmerged, margins applied). `imageSize`
  // is the image's size in pixels.
  static std::vector<Detection> scanText(const std::vector<processing::OCRLine>& observations,
                                         Size imageSize, bool includePII, bool includeAllText);
  // Replaces any two detections whose frames overlap by one covering both,
  // until no two overlap. Frames that only touch do not overlap.
  static std::vector<Detection> mergeOverlapping(std::vector<Detection> detections);

  // The raw value of a kind (its case name) and back.
  static std::string_view kindName(Kind kind);
  static std::optional<Kind> kindNamed(std::string_view name);

 private:
  processing::OCRService& ocr_;
  ImageCodec& codec_;
  ImageDetector* detector_;
};

}  // namespace klipora::markup
