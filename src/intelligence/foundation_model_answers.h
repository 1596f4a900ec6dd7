// Reading a language model's answers: the JSON object in an answer's text,
// its fields, the built-in category and the user category it names, and
// the terms of a keyword answer. Whatever the model writes is only ever
// taken through these rules. Pure functions; safe from any thread.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "intelligence/model_arbiter.h"

namespace klipora::intelligence {

// The object in `text`, which servers without guided output may wrap in
// prose or code fences; nothing when there is none.
std::optional<nlohmann::json> answerObject(const std::string& text);

std::optional<std::string> stringField(const nlohmann::json& object, const char* name);
// An integer, or a text that holds only one.
std::optional<long long> integerField(const nlohmann::json& object, const char* name);

// The category a model's text names: its case name, compared after trimming
// and lower-casing. "uncategorized" maps to no category (`*known` true);
// any other text to nothing with `*known` false.
std::optional<ScreenshotCategory> mapModelCategory(const std::string& text, bool* known);

// Which of `categories` (0-based) a combined answer names: number 0 or an
// empty name is none; a name found in the list wins over a number that
// points elsewhere (`*mismatch` set); a number outside 1...count with no
// matching name is none.
std::optional<size_t> matchCustomAnswer(long long number, const std::string& name,
                                        const std::vector<CustomCategoryDescriptor>& categories,
                                        bool* mismatch);

// The comma-separated terms of a keyword answer: trimmed, lower-cased,
// stripped of quotes and end punctuation, single words only, none of
// `base`, no repeats.
std::vector<std::string> keywordTerms(const std::string& answer,
                                      const std::vector<std::string>& base);

}  // namespace klipora::intelligence
