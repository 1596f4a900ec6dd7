#include "intelligence/foundation_model_answers.h"

#include <algorithm>
#include <cmath>

#include "intelligence/text_words.h"

namespace klipora::intelligence {
namespace {

using Json = nlohmann::json;

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Trim(std::string_view text) { return std::string(trimBlanks(text)); }

}  // namespace

std::optional<Json> answerObject(const std::string& text) {
  size_t open = text.find('{');
  size_t close = text.rfind('}');
  if (open == std::string::npos || close == std::string::npos || close < open) {
    return std::nullopt;
  }
  Json json = Json::parse(text.substr(open, close - open + 1), nullptr, false);
  if (!json.is_object()) return std::nullopt;
  return json;
}

std::optional<std::string> stringField(const Json& object, const char* name) {
  auto it = object.find(name);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::optional<long long> integerField(const Json& object, const char* name) {
  auto it = object.find(name);
  if (it == object.end()) return std::nullopt;
  if (it->is_number_integer()) return it->get<long long>();
  if (it->is_number_float()) {
    double value = it->get<double>();
    if (std::isfinite(value) && value == std::floor(value) && std::abs(value) < 1e15) {
      return static_cast<long long>(value);
    }
    return std::nullopt;
  }
  if (it->is_string()) {
    std::string text = Trim(it->get<std::string>());
    if (text.empty() || text.size() > 15 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      return std::nullopt;
    }
    return std::stoll(text);
  }
  return std::nullopt;
}

std::vector<std::string> keywordTerms(const std::string& answer,
                                      const std::vector<std::string>& base) {
  std::vector<std::string> out;
  size_t from = 0;
  while (from <= answer.size()) {
    size_t comma = answer.find(',', from);
    if (comma == std::string::npos) comma = answer.size();
    std::string term = Lower(Trim(std::string_view(answer).substr(from, comma - from)));
    from = comma + 1;
    while (!term.empty() && std::string_view(".;:\"'").find(term.back()) != std::string::npos) {
      term.pop_back();
    }
    while (!term.empty() && std::string_view("\"'").find(term.front()) != std::string::npos) {
      term.erase(0, 1);
    }
    if (term.empty() || term.find_first_of(" \t\n") != std::string::npos) continue;
    if (std::find(base.begin(), base.end(), term) != base.end()) continue;
    if (std::find(out.begin(), out.end(), term) != out.end()) continue;
    out.push_back(term);
  }
  return out;
}

std::optional<ScreenshotCategory> mapModelCategory(const std::string& text, bool* known) {
  auto category = library::fromRaw<ScreenshotCategory>(Lower(Trim(text)));
  *known = category.has_value();
  if (!category || *category == ScreenshotCategory::uncategorized) return std::nullopt;
  return category;
}

std::optional<size_t> matchCustomAnswer(long long number, const std::string& name,
                                        const std::vector<CustomCategoryDescriptor>& categories,
                                        bool* mismatch) {
  *mismatch = false;
  const std::string wanted = Lower(Trim(name));
  if (number == 0 || wanted.empty()) return std::nullopt;
  std::optional<size_t> byName;
  for (size_t i = 0; i < categories.size() && !byName; ++i) {
    if (Lower(Trim(categories[i].name)) == wanted) byName = i;
  }
  std::optional<size_t> byNumber;
  if (number >= 1 && static_cast<unsigned long long>(number) <= categories.size()) {
    byNumber = static_cast<size_t>(number - 1);
  }
  if (byName && byNumber && *byName != *byNumber) *mismatch = true;
  return byName ? byName : byNumber;
}

}  // namespace klipora::intelligence
