// Screenshot-like text in Chinese, Japanese and Korean for the search
// benchmarks: sentences of words drawn with a Zipf curve from a made-up
// vocabulary per language (common characters, kana and Hangul syllables), with
// the punctuation of each script, a Latin word now and then, and, in a quarter
// of the texts, the blanks a recogniser writes between characters. Seeded:
// the same seed gives the same texts.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace klipora::bench {

class CjkCorpus {
 public:
  explicit CjkCorpus(uint32_t seed);

  // About `characters` characters of one language (chosen in turn).
  std::string text(int characters);

  // `count` query terms of `characters` characters (2, 3, 5...), each cut at
  // random from a sentence of `texts` (blanks between characters left out,
  // as the index reads them): a run a user remembers from a screenshot.
  std::vector<std::string> terms(const std::vector<std::string>& texts, int characters,
                                 int count);

 private:
  struct Language {
    std::vector<std::u32string> words;
    std::discrete_distribution<size_t> zipf;
    std::u32string comma, stop;
    bool blanks = false;  // Korean writes blanks between words
  };
  std::u32string sentence(Language& language);

  std::mt19937 rng_;
  std::vector<Language> languages_;
  size_t next_ = 0;
};

}  // namespace klipora::bench
