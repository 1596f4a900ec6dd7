// Encodings of the list-valued `…Raw` record fields. These strings are copied
// verbatim by the cloud records and the settings export, so they must match
// the other devices byte for byte:
//   - string lists: elements joined with U+001F; "" is the empty list; split
//     pieces are kept as they are (no trimming, empty pieces kept);
//   - float lists: each 32-bit float in its shortest round-trip form;
//   - candidates: "<raw category>:<double>" pairs joined with U+001F; pieces
//     that do not split into two parts on ':' or whose score is not a number
//     are skipped when decoding.
// Numbers print as the other system writes them: shortest round-trip digits,
// with ".0" after an integral value ("1.0", "0.8", "1e-05").
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace klipora::library {

inline constexpr char kListSeparator = '\x1f';

std::string joinList(const std::vector<std::string>& items);
std::vector<std::string> splitList(std::string_view raw);

std::string formatShortest(float value);
std::string formatShortest(double value);
// Parses a whole string as a number; false when any character is left over.
bool parseNumber(std::string_view text, double* out);

std::string encodeFloatList(const std::vector<float>& values);
std::vector<float> decodeFloatList(std::string_view raw);

struct CategoryScore {
  std::string category;  // raw value, as stored (may name a category this build lacks)
  double score = 0;
  bool operator==(const CategoryScore&) const = default;
};
std::string encodeCandidates(const std::vector<CategoryScore>& candidates);
std::vector<CategoryScore> decodeCandidates(std::string_view raw);

}  // namespace klipora::library
