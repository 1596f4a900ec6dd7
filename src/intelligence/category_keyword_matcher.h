// KeywordAutomaton: finds every occurrence of a fixed set of keywords in one
// pass over a text (Aho–Corasick, with the failure links folded into a full
// transition table over byte classes). Matching ignores ASCII case: upper-case
// ASCII letters in the text match the lower-case letters of the keywords;
// every other byte, including UTF-8 sequences such as "€", must match exactly.
//
// KeywordHits is the set of keywords that occur in a text, filled either by
// the automaton or by the plain reference search (lower-cased copy and one
// find per keyword), which exists to check the automaton and to measure it.
//
// Thread rules: an automaton is immutable after construction; scan() may run
// on any number of threads at once.
#pragma once

#include <bitset>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace klipora::intelligence {

inline constexpr size_t kMaxKeywords = 512;

class KeywordHits {
 public:
  bool contains(size_t keyword) const { return bits_.test(keyword); }
  void insert(size_t keyword) { bits_.set(keyword); }
  bool any() const { return bits_.any(); }
  bool operator==(const KeywordHits&) const = default;

 private:
  std::bitset<kMaxKeywords> bits_;
};

class KeywordAutomaton {
 public:
  // `keywords` must be non-empty, lower-case and distinct.
  explicit KeywordAutomaton(std::span<const std::string_view> keywords);

  size_t size() const { return keywordCount_; }

  // The keywords that occur in `text`. Long texts are cut into four
  // overlapping stretches scanned in step, so that the processor overlaps
  // their table lookups.
  KeywordHits findAll(std::string_view text) const;

  // Calls onMatch(keywordIndex, end) for every occurrence, overlapping ones
  // included; `end` is the offset one past the occurrence's last byte. When
  // onMatch returns bool, false stops the scan.
  template <typename OnMatch>
  void scan(std::string_view text, OnMatch&& onMatch) const {
    const uint32_t* next = next_.data();
    const uint8_t* classes = classOf_.data();
    const uint32_t firstOutput = firstOutputState_;
    uint32_t state = 0;  // shifted left by classShift_
    for (size_t i = 0; i < text.size(); ++i) {
      state = next[state + classes[static_cast<uint8_t>(text[i])]];
      // States that end a keyword are numbered last, so one comparison
      // tells whether anything ends here.
      if (state >= firstOutput) {
        uint32_t s = (state - firstOutput) >> classShift_;
        for (uint32_t k = outputBegin_[s]; k < outputBegin_[s + 1]; ++k) {
          if constexpr (std::is_same_v<decltype(onMatch(size_t{0}, size_t{0})), bool>) {
            if (!onMatch(size_t{outputs_[k]}, i + 1)) return;
          } else {
            onMatch(size_t{outputs_[k]}, i + 1);
          }
        }
      }
    }
  }

 private:
  size_t keywordCount_ = 0;
  size_t longestKeyword_ = 0;
  uint32_t classShift_ = 0;            // rows of next_ are 1 << classShift_ wide
  std::vector<uint8_t> classOf_;       // byte -> class (0: in no keyword)
  std::vector<uint32_t> next_;         // (state << classShift_) + class -> shifted state
  uint32_t firstOutputState_ = 0;      // shifted id of the first state that ends a keyword
  std::vector<uint32_t> outputBegin_;  // per ending state, into outputs_; one extra at the end
  std::vector<uint16_t> outputs_;      // keyword indices ending at each state
};

// Every keyword of `automaton` that occurs in `text`.
KeywordHits findKeywords(const KeywordAutomaton& automaton, std::string_view text);
// The same set by brute force: an ASCII-lower-cased copy of `text` searched
// once per keyword.
KeywordHits findKeywordsByReference(std::span<const std::string_view> keywords,
                                    std::string_view text);

}  // namespace klipora::intelligence
