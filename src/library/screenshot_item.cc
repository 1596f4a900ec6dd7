#include "library/screenshot_item.h"

#include <algorithm>

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

namespace {

// Unicode white space: the ASCII blanks and line breaks, NEL, the no-break
// spaces, the typographic spaces of U+2000..U+200A, the line and paragraph
// separators, and the ideographic space.
bool IsWhiteSpace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
         c == 0x205F || c == 0x3000;
}

// The code point encoded by the `length` bytes at `p` (UTF-8 already checked
// by the caller's choice of length); U+FFFD for anything malformed.
char32_t DecodeAt(std::string_view text, size_t at, size_t length) {
  auto byte = [&](size_t i) { return static_cast<unsigned char>(text[at + i]); };
  if (length == 1) return byte(0);
  char32_t c = byte(0) & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0xFFFD;
    c = (c << 6) | (byte(i) & 0x3F);
  }
  return c;
}

size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 1;  // a stray continuation byte: not white space
}

}  // namespace

std::string_view trimmedView(std::string_view text) {
  while (!text.empty()) {
    size_t length = std::min(SequenceLength(static_cast<unsigned char>(text[0])), text.size());
    if (!IsWhiteSpace(DecodeAt(text, 0, length))) break;
    text.remove_prefix(length);
  }
  while (!text.empty()) {
    // Back over up to three continuation bytes to the lead byte.
    size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < 4 &&
           (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) {
      --start;
    }
    size_t length = text.size() - start;
    if (SequenceLength(static_cast<unsigned char>(text[start])) != length ||
        !IsWhiteSpace(DecodeAt(text, start, length))) {
      break;
    }
    text.remove_suffix(length);
  }
  return text;
}

std::string trimmed(std::string_view text) { return std::string(trimmedView(text)); }

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
          // The items outside the trash by state, counted by the status
          // from this index alone (it holds every column the count reads).
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_liveState ON "
          "ScreenshotItem(processingStateRaw, deleted, deletedAt) "
          "WHERE deleted = 0 AND deletedAt IS NULL",
          // The tags in use and the items carrying a tag, read without the
          // items themselves.
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_tagLists ON "
          "ScreenshotItem(userTagsRaw, id) WHERE userTagsRaw <> ''",
          // The sweep of watched folders asks whether a file is in the library.
          "CREATE INDEX IF NOT EXISTS ScreenshotItem_sourcePath ON ScreenshotItem(sourcePath)",
      }};
  return schema;
}

}  // namespace klipora::library
