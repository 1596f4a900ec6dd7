// The accumulation steps of category resolution, each adding evidence to the
// working score table. Internal to CategoryResolver, which calls them in a
// fixed order (later steps read the scores that earlier steps produced).
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "intelligence/category_keyword_matcher.h"
#include "intelligence/category_score_table.h"
#include "intelligence/category_text_signals.h"

namespace klipora::intelligence {

// What the text passes found, shared by the text rules and negative evidence.
struct TextFacts {
  std::string_view text;
  KeywordHits hits;
  TextShape shape;
  bool playbackSplit = false;
};

void accumulateOCR(CategoryScoreTable& table, const TextFacts& facts);
void accumulateLabels(CategoryScoreTable& table, std::span<const ClassificationLabel> labels);
void accumulateFilename(CategoryScoreTable& table, std::string_view filename);
void accumulateEntities(CategoryScoreTable& table, std::span<const std::string> entities);
void accumulateAppContext(CategoryScoreTable& table, const std::optional<std::string>& bundleID,
                          const std::optional<std::string>& appName, std::string_view text);
void accumulateBrowserURLPatterns(CategoryScoreTable& table, std::string_view text);

// Hard scores: the scores after the rules above, before similarity.
using HardScores = std::array<double, library::kAllScreenshotCategories.size()>;
void accumulateSemanticScores(CategoryScoreTable& table, const HardScores& hard,
                              const std::map<ScreenshotCategory, double>& scores);
void accumulateVisualVotes(CategoryScoreTable& table, const HardScores& hard,
                           const std::map<ScreenshotCategory, double>& votes);
void applyNegativeEvidence(CategoryScoreTable& table, const TextFacts& facts);
void accumulateLongText(CategoryScoreTable& table, const TextFacts& facts);

// The category an entity's form suggests: web addresses read as articles,
// e-mail addresses and phone numbers as chats, money amounts as payments;
// names and anything else suggest nothing.
std::optional<ScreenshotCategory> entityCategory(std::string_view entity);

}  // namespace klipora::intelligence
