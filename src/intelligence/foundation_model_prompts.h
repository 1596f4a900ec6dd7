// The texts FoundationModelClassifier sends: the output schemas with their
// field guides (sent as JSON-schema descriptions), the arbitration prompt,
// the combined prompt with the user's categories, and the keyword-expansion
// prompt. Pure functions of their inputs; safe from any thread.
#pragma once

#include <string>
#include <vector>

#include "intelligence/model_arbiter.h"

namespace klipora::intelligence {

// Schema names, also written in the classifier's trail.
inline constexpr char kCategoryClassification[] = "CategoryClassification";
inline constexpr char kCustomCategoryClassification[] = "CustomCategoryClassification";
inline constexpr char kCombinedClassification[] = "CombinedClassification";
inline constexpr char kKeywordExpansion[] = "KeywordExpansion";

extern const char* const kCategoryGuide;
extern const char* const kTitleGuide;
extern const char* const kKeywordsGuide;

// JSON-schema texts: one object, every field required, nothing else.
std::string categoryClassificationSchema();
std::string customCategoryClassificationSchema();
std::string combinedClassificationSchema();
std::string keywordExpansionSchema();

// The built-in arbitration prompt; `imageAttached` adds the line that says
// the screenshot is attached.
std::string arbitrationPrompt(const ArbitrationInput& input, bool imageAttached);
// The same, then the second task and the user's categories numbered from 1.
std::string combinedPrompt(const ArbitrationInput& input,
                           const std::vector<CustomCategoryDescriptor>& categories,
                           bool imageAttached);
std::string keywordExpansionPrompt(const std::string& categoryName,
                                   const std::string& description,
                                   const std::vector<std::string>& base);

// The recognised text is cut to this many bytes (at a character boundary)
// before it goes into a prompt.
inline constexpr size_t kMaxPromptOCRBytes = 6000;

}  // namespace klipora::intelligence
