// Helpers shared by the category-resolution tests: building inputs and
// reading scores and evidence back out of a result.
#pragma once

#include <string>

#include "intelligence/category_resolver.h"

namespace klipora::intelligence::testing {

inline ResolutionInput TextInput(std::string text) {
  ResolutionInput input;
  input.ocrText = std::move(text);
  return input;
}

inline const CategoryCandidate* Candidate(const ResolutionResult& result,
                                          ScreenshotCategory category) {
  for (const auto& candidate : result.candidates) {
    if (candidate.category == category) return &candidate;
  }
  return nullptr;
}

// The score of `category`, or -100 when it is not among the candidates.
inline double Score(const ResolutionResult& result, ScreenshotCategory category) {
  const CategoryCandidate* candidate = Candidate(result, category);
  return candidate ? candidate->score : -100;
}

// The evidence with `signal` on `category`, or null.
inline const CategoryEvidence* Evidence(const ResolutionResult& result,
                                        ScreenshotCategory category, const std::string& signal) {
  const CategoryCandidate* candidate = Candidate(result, category);
  if (candidate == nullptr) return nullptr;
  for (const auto& evidence : candidate->evidence) {
    if (evidence.signal == signal) return &evidence;
  }
  return nullptr;
}

inline double Weight(const ResolutionResult& result, ScreenshotCategory category,
                     const std::string& signal) {
  const CategoryEvidence* evidence = Evidence(result, category, signal);
  return evidence ? evidence->weight : 0;
}

inline ResolutionResult Resolve(const ResolutionInput& input) {
  return CategoryResolver().resolve(input);
}

}  // namespace klipora::intelligence::testing
