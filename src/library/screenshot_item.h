// ScreenshotItem: one imported screenshot, the central record of the library.
// Fields are in declaration order and named as stored. List-valued fields are
// kept in their `…Raw` string encodings (list_encoding.h); the typed views
// below read and write through those encodings. Plain value type: a record
// fetched from a ModelContext belongs to that context's thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "library/enums.h"
#include "library/list_encoding.h"
#include "library/record_schema.h"
#include "library/screenshot_category.h"

namespace klipora::library {

struct ScreenshotItem {
  UUID id = UUID::Random();
  std::string originalFilename;
  std::string importedFilename;
  std::string sourcePath;
  std::string libraryPath;
  std::optional<std::string> thumbnailPath;
  std::optional<Date> capturedAt;
  Date importedAt;
  int64_t fileSize = 0;
  int width = 0;
  int height = 0;
  std::string checksum;
  std::optional<std::string> ocrText;
  std::optional<std::string> generatedTitle;
  std::optional<std::string> generatedSummary;
  ScreenshotCategory generatedCategory = ScreenshotCategory::uncategorized;
  std::string generatedKeywordsRaw;
  std::string classificationLabelsRaw;
  std::string classificationConfidencesRaw;
  std::string generatedEntitiesRaw;
  double generatedCategoryConfidence = 0;
  std::string generatedCategoryCandidatesRaw;
  std::optional<std::string> categorizationExplanation;
  int categorizationVersion = 0;
  bool needsReview = false;
  std::optional<Bytes> featurePrintData;
  std::optional<ScreenshotCategory> userCategory;
  std::optional<std::string> userTitle;
  std::string userTagsRaw;
  std::optional<std::string> userNote;
  bool favorite = false;
  bool archived = false;
  bool deleted = false;
  std::optional<Date> deletedAt;
  std::string processingStateRaw = "pending";
  std::optional<std::string> processingError;
  std::optional<Date> lastProcessedAt;
  int shareCount = 0;
  std::optional<Date> lastViewedAt;
  ImportSourceType importSource = ImportSourceType::manualImport;
  std::optional<UUID> customCategoryID;
  std::optional<std::string> sourceAppBundleID;
  std::optional<std::string> sourceAppName;
  std::optional<UUID> editedFromID;

  // Typed views over the `…Raw` fields.
  std::vector<std::string> userTags() const { return splitList(userTagsRaw); }
  void setUserTags(const std::vector<std::string>& v) { userTagsRaw = joinList(v); }
  std::vector<std::string> generatedKeywords() const { return splitList(generatedKeywordsRaw); }
  void setGeneratedKeywords(const std::vector<std::string>& v) {
    generatedKeywordsRaw = joinList(v);
  }
  std::vector<std::string> classificationLabels() const {
    return splitList(classificationLabelsRaw);
  }
  void setClassificationLabels(const std::vector<std::string>& v) {
    classificationLabelsRaw = joinList(v);
  }
  std::vector<std::string> generatedEntities() const { return splitList(generatedEntitiesRaw); }
  void setGeneratedEntities(const std::vector<std::string>& v) {
    generatedEntitiesRaw = joinList(v);
  }
  std::vector<float> classificationConfidences() const {
    return decodeFloatList(classificationConfidencesRaw);
  }
  void setClassificationConfidences(const std::vector<float>& v) {
    classificationConfidencesRaw = encodeFloatList(v);
  }
  std::vector<CategoryScore> generatedCategoryCandidates() const {
    return decodeCandidates(generatedCategoryCandidatesRaw);
  }
  void setGeneratedCategoryCandidates(const std::vector<CategoryScore>& v) {
    generatedCategoryCandidatesRaw = encodeCandidates(v);
  }
  // An unknown raw state reads as pending, so the item is processed again.
  ProcessingState processingState() const;
  void setProcessingState(ProcessingState state);

  // Derived properties.
  ScreenshotCategory effectiveCategory() const;
  // The user's title (trimmed) when it has text, else automaticTitle().
  std::string displayTitle() const;
  // generatedTitle, else the first line of the recognised text (at most 80
  // characters), else the effective category's localised name.
  std::string automaticTitle() const;
  bool hasUserTitle() const;
  // processingState, except that a partiallyFailed item whose only failure was
  // text recognition ("OCR failed") shows as complete: it is fully usable.
  ProcessingState displayProcessingState() const;
  // The card shows a failure badge for failed and partiallyFailed display states.
  bool showsProcessingFailure() const;
  // In the trash when either mark is set, so a half-synced record stays hidden.
  bool isTrashed() const;
  // Title, file name, text, summary, note, tags, keywords, entities, category
  // names and source application, joined with single spaces.
  std::string searchableText() const;
};

template <>
const RecordSchema<ScreenshotItem>& schemaOf<ScreenshotItem>();

// Removes Unicode white space and line breaks from both ends: the ASCII
// blanks, the no-break spaces (U+00A0, U+202F), the typographic and
// ideographic spaces, the line and paragraph separators.
std::string trimmed(std::string_view text);
std::string_view trimmedView(std::string_view text);

}  // namespace klipora::library
