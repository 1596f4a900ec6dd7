#include "processing/ocr_result.h"

#include <algorithm>

#include "platform/localization.h"

namespace klipora::processing {

OCRRect OCRRect::united(const OCRRect& other) const {
  double left = std::min(x, other.x), bottom = std::min(y, other.y);
  double right = std::max(maxX(), other.maxX()), top = std::max(maxY(), other.maxY());
  return {left, bottom, right - left, top - bottom};
}

std::optional<OCRRect> OCRLine::boundingBoxOfRange(size_t begin, size_t end) const {
  std::optional<OCRRect> box;
  for (const OCRCharacterBox& c : characterBoxes) {
    if (c.offset + c.length <= begin || c.offset >= end) continue;
    box = box ? box->united(c.box) : c.box;
  }
  return box;
}

OCRResult OCRResult::fromLines(std::vector<OCRLine> lines) {
  OCRResult result;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) result.text += '\n';
    result.text += lines[i].text;
  }
  result.lines = std::move(lines);
  return result;
}

std::string OCRError::errorDescription() const {
  switch (kind) {
    case Case::recognizerUnavailable:
      // TRANSLATORS: text recognition failed to answer; shown on the item and on the command line.
      return tr("Text recognition isn't responding. Try again in a minute.");
    case Case::unreadableImage:
      // TRANSLATORS: the image could not be decoded for text recognition.
      return tr("Could not load image for OCR.");
    case Case::accurateHangGuardTripped:
      // TRANSLATORS: text recognition ran far too long and was abandoned.
      return tr("Accurate text recognition hung.");
    case Case::recognizerStillLoading:
      // TRANSLATORS: the text recogniser's language models are still being loaded.
      return tr("Text recognition is still loading. Try again shortly.");
  }
  return {};
}

std::string OCRError::describeWithDetail() const {
  return detail.empty() ? errorDescription() : errorDescription() + " (" + detail + ")";
}

}  // namespace klipora::processing
