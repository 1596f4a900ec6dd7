#include "library/screenshot_item.h"

namespace klipora::library {
namespace {

constexpr size_t kTitleFromTextLimit = 80;

// UTF-8 safe cut at no more than `limit` bytes.
std::string Utf8Prefix(const std::string& text, size_t limit) {
  if (text.size() <= limit) return text;
  size_t cut = limit;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return text.substr(0, cut);
}

void Append(std::string& out, std::string_view part) {
  if (part.empty()) return;
  if (!out.empty()) out.push_back(' ');
  out += part;
}

std::string JoinWithSpaces(const std::vector<std::string>& items) {
  std::string out;
  for (const auto& i : items) Append(out, i);
  return out;
}

}  // namespace

std::string trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\n\r\v\f";
  size_t start = text.find_first_not_of(kBlank);
  if (start == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(kBlank);
  return std::string(text.substr(start, end - start + 1));
}

ProcessingState ScreenshotItem::processingState() const {
  return fromRaw<ProcessingState>(processingStateRaw).value_or(ProcessingState::pending);
}

void ScreenshotItem::setProcessingState(ProcessingState state) {
  processingStateRaw = std::string(rawValue(state));
}

ScreenshotCategory ScreenshotItem::effectiveCategory() const {
  return userCategory.value_or(generatedCategory);
}

std::string ScreenshotItem::displayTitle() const {
  if (userTitle) {
    std::string t = trimmed(*userTitle);
    if (!t.empty()) return t;
  }
  return automaticTitle();
}

std::string ScreenshotItem::automaticTitle() const {
  if (generatedTitle) {
    std::string t = trimmed(*generatedTitle);
    if (!t.empty()) return t;
  }
  if (ocrText) {
    size_t pos = 0;
    const std::string& text = *ocrText;
    while (pos < text.size()) {
      size_t end = text.find('\n', pos);
      std::string line = trimmed(std::string_view(text).substr(pos, end - pos));
      if (!line.empty()) return Utf8Prefix(line, kTitleFromTextLimit);
      if (end == std::string::npos) break;
      pos = end + 1;
    }
  }
  // The category's display name is already localised (its catalogue entry
  // carries the comment "Fallback screenshot title: localized category name").
  return displayName(effectiveCategory());
}

bool ScreenshotItem::hasUserTitle() const { return userTitle && !userTitle->empty(); }

ProcessingState ScreenshotItem::displayProcessingState() const {
  ProcessingState state = processingState();
  if (state == ProcessingState::partiallyFailed && processingError == "OCR failed") {
    return ProcessingState::complete;
  }
  return state;
}

bool ScreenshotItem::showsProcessingFailure() const {
  ProcessingState shown = displayProcessingState();
  return shown == ProcessingState::failed || shown == ProcessingState::partiallyFailed;
}

bool ScreenshotItem::isTrashed() const { return deleted || deletedAt.has_value(); }

std::string ScreenshotItem::searchableText() const {
  std::string out;
  Append(out, displayTitle());
  Append(out, originalFilename);
  if (ocrText) Append(out, *ocrText);
  if (generatedSummary) Append(out, *generatedSummary);
  if (userNote) Append(out, *userNote);
  Append(out, JoinWithSpaces(userTags()));
  Append(out, JoinWithSpaces(generatedKeywords()));
  Append(out, JoinWithSpaces(generatedEntities()));
  Append(out, displayName(effectiveCategory()));
  if (sourceAppName) Append(out, *sourceAppName);
  return out;
}

template <>
const RecordSchema<ScreenshotItem>& schemaOf<ScreenshotItem>() {
  using R = ScreenshotItem;
  static const RecordSchema<R> schema{
      "ScreenshotItem",
      {
          column(&R::id, "id"),
          column(&R::originalFilename, "originalFilename"),
          column(&R::importedFilename, "importedFilename"),
          column(&R::sourcePath, "sourcePath"),
          column(&R::libraryPath, "libraryPath"),
          column(&R::thumbnailPath, "thumbnailPath"),
          column(&R::capturedAt, "capturedAt"),
          column(&R::importedAt, "importedAt"),
          column(&R::fileSize, "fileSize"),
          column(&R::width, "width"),
          column(&R::height, "height"),
          column(&R::checksum, "checksum"),
          column(&R::ocrText, "ocrText"),
          column(&R::generatedTitle, "generatedTitle"),
          column(&R::generatedSummary, "generatedSummary"),
          column(&R::generatedCategory, "generatedCategory"),
          column(&R::generatedKeywordsRaw, "generatedKeywordsRaw"),
          column(&R::classificationLabelsRaw, "classificationLabelsRaw"),
          column(&R::classificationConfidencesRaw, "classificationConfidencesRaw"),
          column(&R::generatedEntitiesRaw, "generatedEntitiesRaw"),
          column(&R::generatedCategoryConfidence, "generatedCategoryConfidence"),
          column(&R::generatedCategoryCandidatesRaw, "generatedCategoryCandidatesRaw"),
          column(&R::categorizationExplanation, "categorizationExplanation"),
          column(&R::categorizationVersion, "categorizationVersion"),
          column(&R::needsReview, "needsReview"),
          column(&R::featurePrintData, "featurePrintData"),
          column(&R::userCategory, "userCategory"),
          column(&R::userTitle, "userTitle"),
          column(&R::userTagsRaw, "userTagsRaw"),
          column(&R::userNote, "userNote"),
          column(&R::favorite, "favorite"),
          column(&R::archived, "archived"),
          column(&R::deleted, "deleted"),
          column(&R::deletedAt, "deletedAt"),
          column(&R::processingStateRaw, "processingStateRaw"),
          column(&R::processingError, "processingError"),
          column(&R::lastProcessedAt, "lastProcessedAt"),
          column(&R::shareCount, "shareCount"),
          column(&R::lastViewedAt, "lastViewedAt"),
          column(&R::importSource, "importSource"),
          column(&R::customCategoryID, "customCategoryID"),
          column(&R::sourceAppBundleID, "sourceAppBundleID"),
          column(&R::sourceAppName, "sourceAppName"),
          column(&R::editedFromID, "editedFromID"),
      },
      {
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_checksum ON ScreenshotItem(checksum)",
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_importedAt ON ScreenshotItem(importedAt)",
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_deletedAt ON ScreenshotItem(deletedAt)",
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_state ON ScreenshotItem(processingStateRaw)",
          // The sweep of watched folders asks whether a file is in the library.
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_sourcePath ON ScreenshotItem(sourcePath)",
      }};
  return schema;
}

}  // namespace klipora::library
