#include "library/list_encoding.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace klipora::library {
namespace {

template <typename F>
std::string Shortest(F value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buf[64];
  auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
  std::string text(buf, end);
  if (text.find_first_of(".eE") == std::string::npos) text += ".0";
  return text;
}

}  // namespace

std::string joinList(const std::vector<std::string>& items) {
  std::string out;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i) out.push_back(kListSeparator);
    out += items[i];
  }
  return out;
}

std::vector<std::string> splitList(std::string_view raw) {
  std::vector<std::string> out;
  if (raw.empty()) return out;
  size_t start = 0;
  while (true) {
    size_t sep = raw.find(kListSeparator, start);
    out.emplace_back(raw.substr(start, sep == std::string_view::npos ? raw.npos : sep - start));
    if (sep == std::string_view::npos) break;
    start = sep + 1;
  }
  return out;
}

std::string formatShortest(float value) { return Shortest(value); }
std::string formatShortest(double value) { return Shortest(value); }

bool parseNumber(std::string_view text, double* out) {
  if (text.empty()) return false;
  const char* begin = text.data();
  const char* end = begin + text.size();
  if (*begin == '+') ++begin;  // from_chars refuses a leading '+'
  auto [ptr, ec] = std::from_chars(begin, end, *out);
  return ec == std::errc() && ptr == end;
}

std::string encodeFloatList(const std::vector<float>& values) {
  std::vector<std::string> pieces;
  pieces.reserve(values.size());
  for (float v : values) pieces.push_back(formatShortest(v));
  return joinList(pieces);
}

std::vector<float> decodeFloatList(std::string_view raw) {
  std::vector<float> out;
  for (const auto& piece : splitList(raw)) {
    double v;
    if (parseNumber(piece, &v)) out.push_back(static_cast<float>(v));
  }
  return out;
}

std::string encodeCandidates(const std::vector<CategoryScore>& candidates) {
  std::vector<std::string> pieces;
  pieces.reserve(candidates.size());
  for (const auto& c : candidates) pieces.push_back(c.category + ":" + formatShortest(c.score));
  return joinList(pieces);
}

std::vector<CategoryScore> decodeCandidates(std::string_view raw) {
  std::vector<CategoryScore> out;
  for (const auto& piece : splitList(raw)) {
    size_t colon = piece.find(':');
    if (colon == std::string::npos || piece.find(':', colon + 1) != std::string::npos) continue;
    double score;
    if (!parseNumber(std::string_view(piece).substr(colon + 1), &score)) continue;
    out.push_back(CategoryScore{piece.substr(0, colon), score});
  }
  return out;
}

}  // namespace klipora::library
