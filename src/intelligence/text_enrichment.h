// Stand-in until text enrichment lands: same interface.
#pragma once
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>
namespace klipora::intelligence {
std::vector<std::string> keywordCandidates(std::string_view text);
struct TextEnrichment {
  std::vector<std::string> entities;
  std::vector<std::string> keywords;
  std::optional<std::string> summary;
};
TextEnrichment enrichText(std::string_view text,
                          const std::map<std::string, int64_t>& documentFrequency,
                          int64_t documentCount);
}  // namespace klipora::intelligence
