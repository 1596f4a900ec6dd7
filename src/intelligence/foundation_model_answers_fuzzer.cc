// A model's answer is outside input: whatever it writes must be read without
// harm, and only through the mapping rules.
#include <cstddef>
#include <cstdint>
#include <string>

#include "intelligence/foundation_model_answers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace klipora::intelligence;
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::vector<CustomCategoryDescriptor> kCategories = {
      {klipora::UUID::Random(), "Cars", "", {}}, {klipora::UUID::Random(), "Food", "", {}}};
  for (const std::string& candidate : {text, "{\"category\":\"" + text + "\"}"}) {
    auto object = answerObject(candidate);
    if (!object) continue;
    if (!object->is_object()) __builtin_trap();
    bool known = false;
    auto category = mapModelCategory(stringField(*object, "category").value_or(""), &known);
    if (category && !known) __builtin_trap();
    bool mismatch = false;
    auto index = matchCustomAnswer(integerField(*object, "customCategoryNumber").value_or(0),
                                   stringField(*object, "customCategoryName").value_or(""),
                                   kCategories, &mismatch);
    if (index && *index >= kCategories.size()) __builtin_trap();
  }
  for (const auto& term : keywordTerms(text, {"car"})) {
    if (term.empty() || term == "car" || term.find(' ') != std::string::npos) __builtin_trap();
  }
  return 0;
}
