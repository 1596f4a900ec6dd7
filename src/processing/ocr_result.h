// What text recognition gives back: OCRResult (the whole text and its lines),
// OCRLine (one line's text, confidence and box, and on request the box of each
// character) and OCRError (why nothing came back). Plain values.
//
// Boxes are in the image's normalised coordinates: 0 to 1 on both axes, the
// origin at the bottom left, y growing upwards. To get pixels in the usual
// top-left convention: left = x·W, top = (1 − y − height)·H.
#pragma once

#include <optional>
#include <string>
#include <tl/expected.hpp>
#include <vector>

namespace klipora::processing {

struct OCRRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double maxX() const { return x + width; }
  double maxY() const { return y + height; }
  // The smallest rectangle holding both.
  OCRRect united(const OCRRect& other) const;
  bool operator==(const OCRRect&) const = default;
};

// One recognised character: the bytes [offset, offset + length) of the line's
// text (UTF-8) and the character's box.
struct OCRCharacterBox {
  size_t offset = 0;
  size_t length = 0;
  OCRRect box;
};

struct OCRLine {
  std::string text;
  float confidence = 0;  // 0..1, the recogniser's confidence in this reading
  OCRRect boundingBox;
  // Empty unless character boxes were asked for. Blanks have no box.
  std::vector<OCRCharacterBox> characterBoxes;

  // The tight box of the characters overlapping the bytes [begin, end) of
  // `text`; nothing when character boxes were not asked for or the range
  // holds only blanks.
  std::optional<OCRRect> boundingBoxOfRange(size_t begin, size_t end) const;
};

struct OCRResult {
  std::string text;  // the lines' texts joined by single line feeds
  std::vector<OCRLine> lines;

  // Builds `text` from `lines`.
  static OCRResult fromLines(std::vector<OCRLine> lines);
};

struct OCRError {
  enum class Case {
    recognizerUnavailable,
    unreadableImage,
    accurateHangGuardTripped,
    recognizerStillLoading,
  };

  static OCRError recognizerUnavailable(std::string detail) {
    return {Case::recognizerUnavailable, std::move(detail)};
  }
  static OCRError unreadableImage(std::string detail = "") {
    return {Case::unreadableImage, std::move(detail)};
  }
  static OCRError accurateHangGuardTripped() { return {Case::accurateHangGuardTripped, {}}; }
  static OCRError recognizerStillLoading() { return {Case::recognizerStillLoading, {}}; }

  // The text users see, fixed per case.
  std::string errorDescription() const;
  // errorDescription() followed by the detail in parentheses, when there is one.
  std::string describeWithDetail() const;

  Case kind;
  std::string detail;  // what went wrong underneath, for logs and the command line
};

using OCRResultOrError = tl::expected<OCRResult, OCRError>;

}  // namespace klipora::processing
