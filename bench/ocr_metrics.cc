#include "ocr_metrics.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <vector>

namespace klipora::bench {
namespace {

bool IsWordByte(unsigned char c) { return std::isalnum(c) || c >= 0x80; }

std::map<std::string, int> Words(const std::string& text, int* count) {
  std::map<std::string, int> words;
  std::string word;
  *count = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    unsigned char c = i < text.size() ? static_cast<unsigned char>(text[i]) : ' ';
    if (IsWordByte(c)) {
      word += static_cast<char>(std::tolower(c));
    } else if (!word.empty()) {
      ++words[word];
      ++*count;
      word.clear();
    }
  }
  return words;
}

std::string Normalized(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (std::isspace(static_cast<unsigned char>(c))) {
      if (!out.empty() && out.back() != ' ') out += ' ';
    } else {
      out += c;
    }
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

int EditDistance(const std::string& a, const std::string& b) {
  std::vector<int> previous(b.size() + 1), current(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) previous[j] = static_cast<int>(j);
  for (size_t i = 1; i <= a.size(); ++i) {
    current[0] = static_cast<int>(i);
    for (size_t j = 1; j <= b.size(); ++j) {
      int substitute = previous[j - 1] + (a[i - 1] != b[j - 1]);
      current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitute});
    }
    std::swap(previous, current);
  }
  return previous[b.size()];
}

}  // namespace

TextScore& TextScore::operator+=(const TextScore& o) {
  truthWords += o.truthWords;
  readWords += o.readWords;
  matchedWords += o.matchedWords;
  truthChars += o.truthChars;
  charEdits += o.charEdits;
  return *this;
}

TextScore scoreText(const std::string& read, const std::string& truth) {
  TextScore score;
  auto truthWords = Words(truth, &score.truthWords);
  auto readWords = Words(read, &score.readWords);
  for (const auto& [word, count] : truthWords) {
    auto found = readWords.find(word);
    if (found != readWords.end()) score.matchedWords += std::min(count, found->second);
  }
  std::string a = Normalized(read), b = Normalized(truth);
  score.truthChars = static_cast<int>(b.size());
  score.charEdits = EditDistance(a, b);
  return score;
}

}  // namespace klipora::bench
