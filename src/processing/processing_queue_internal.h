// What one processing run carries between its steps, and the reference sets
// it classifies against. Private to the queue's own files.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "intelligence/custom_category_matcher.h"
#include "intelligence/feature_print.h"
#include "intelligence/generated_title.h"
#include "intelligence/semantic_scores.h"
#include "intelligence/text_enrichment.h"
#include "library/screenshot_item.h"
#include "processing/processing_queue.h"

namespace klipora::processing {

struct ProcessingQueue::Phase1 {
  OCROutcome ocr;
  bool ocrLate = false;
  LabelsOutcome labels;
  bool labelsLate = false;
  std::optional<library::Bytes> featurePrint;
  int outstanding = 3;
};

struct ProcessingQueue::Run {
  UUID id;
  uint64_t token = 0;
  bool priority = false;
  ItemData data;
  // Set when the run ended early: timed out, cancelled, failed or done.
  bool ended = false;
  std::optional<TimerId> timeout;
  std::function<void()> finished;
  Phase1 phase1;
  std::optional<std::string> userCategoryRaw;  // the item's own pick, kept
  bool hasCustomCategory = false;
  // Heuristic results (worker), written at the early persist.
  intelligence::ResolutionResult resolution;
  std::optional<intelligence::CustomMatch> customMatch;
  intelligence::TextEnrichment enrichment;
  std::vector<intelligence::CustomCategoryDescriptor> customCategories;
  std::shared_ptr<const ReferenceSets> references;
  std::map<std::string, int64_t> documentFrequency;
  int64_t documentCount = 0;
};

struct ProcessingQueue::Refinement {
  std::optional<library::ScreenshotCategory> category;
  std::string explanation;
  std::optional<std::string> modelTitle;
  std::optional<UUID> customCategory;
  bool modelAnswered = false;
};

struct ProcessingQueue::ReferenceSets {
  std::vector<intelligence::VisualReference> visual;
  std::unique_ptr<intelligence::SemanticReferenceSet> semantic;
};

// The item with this id, saved or inserted and waiting for the next batched
// save; nullptr when there is none or the store cannot be read.
std::shared_ptr<library::ScreenshotItem> findItem(library::ModelContext& context, const UUID& id);

}  // namespace klipora::processing
