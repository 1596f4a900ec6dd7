// Scores a recognised text against the ground truth the way search uses it:
// lower-cased words (runs of letters and digits), order ignored, matched as
// multisets; plus the character error rate over whitespace-normalised text.
#pragma once

#include <string>

namespace klipora::bench {

struct TextScore {
  int truthWords = 0;
  int readWords = 0;
  int matchedWords = 0;
  int truthChars = 0;
  int charEdits = 0;

  double recall() const { return truthWords ? double(matchedWords) / truthWords : 1.0; }
  double precision() const { return readWords ? double(matchedWords) / readWords : 1.0; }
  double cer() const { return truthChars ? double(charEdits) / truthChars : 0.0; }
  TextScore& operator+=(const TextScore& o);
};

TextScore scoreText(const std::string& read, const std::string& truth);

}  // namespace klipora::bench
