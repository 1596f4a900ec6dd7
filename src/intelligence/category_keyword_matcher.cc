#include "intelligence/category_keyword_matcher.h"

#include <algorithm>
#include <cstdlib>
#include <deque>

#include "platform/log.h"

namespace klipora::intelligence {
namespace {

uint8_t AsciiLower(uint8_t byte) {
  return (byte >= 'A' && byte <= 'Z') ? static_cast<uint8_t>(byte - 'A' + 'a') : byte;
}

}  // namespace

KeywordAutomaton::KeywordAutomaton(std::span<const std::string_view> keywords)
    : keywordCount_(keywords.size()), classOf_(256, 0) {
  if (keywords.size() > kMaxKeywords) {
    // The tables are constants; this only trips when someone grows them.
    log::error("Classify", "keyword automaton given %zu keywords, at most %zu fit",
               keywords.size(), kMaxKeywords);
    std::abort();
  }
  // Byte classes: one per byte that occurs in some keyword, so the
  // transition table stays narrow. Upper-case ASCII shares its lower-case
  // letter's class.
  uint32_t classCount = 1;
  for (std::string_view keyword : keywords) {
    for (char c : keyword) {
      auto byte = static_cast<uint8_t>(c);
      if (classOf_[byte] == 0) classOf_[byte] = static_cast<uint8_t>(classCount++);
    }
  }
  if (classCount > 255) {
    log::error("Classify", "keyword automaton needs %u byte classes, at most 255 fit", classCount);
    std::abort();
  }
  for (int c = 'A'; c <= 'Z'; ++c) classOf_[c] = classOf_[AsciiLower(static_cast<uint8_t>(c))];
  while ((1u << classShift_) < classCount) ++classShift_;
  const uint32_t width = 1u << classShift_;

  // Trie: goto_[state * width + class], 0 = no edge (state 0 is the root and
  // never a child).
  std::vector<uint32_t> goto_(width, 0);
  std::vector<std::vector<uint16_t>> ends(1);
  for (size_t k = 0; k < keywords.size(); ++k) {
    if (keywords[k].empty()) continue;  // would end at the root, which must end nothing
    longestKeyword_ = std::max(longestKeyword_, keywords[k].size());
    uint32_t state = 0;
    for (char c : keywords[k]) {
      uint32_t cls = classOf_[static_cast<uint8_t>(c)];
      uint32_t& edge = goto_[state * width + cls];
      if (edge == 0) {
        edge = static_cast<uint32_t>(ends.size());
        ends.emplace_back();
        goto_.resize(goto_.size() + width, 0);
      }
      state = goto_[state * width + cls];
    }
    ends[state].push_back(static_cast<uint16_t>(k));
  }

  // Breadth-first: failure links, full transitions, inherited outputs.
  const size_t stateCount = ends.size();
  std::vector<uint32_t> fail(stateCount, 0);
  next_.assign(stateCount * width, 0);
  std::deque<uint32_t> queue;
  for (uint32_t cls = 0; cls < width; ++cls) {
    uint32_t child = goto_[cls];
    next_[cls] = child << classShift_;
    if (child != 0) queue.push_back(child);
  }
  while (!queue.empty()) {
    uint32_t state = queue.front();
    queue.pop_front();
    const auto& inherited = ends[fail[state]];
    ends[state].insert(ends[state].end(), inherited.begin(), inherited.end());
    for (uint32_t cls = 0; cls < width; ++cls) {
      uint32_t child = goto_[state * width + cls];
      uint32_t viaFail = next_[fail[state] * width + cls];
      if (child != 0) {
        fail[child] = viaFail >> classShift_;
        next_[state * width + cls] = child << classShift_;
        queue.push_back(child);
      } else {
        next_[state * width + cls] = viaFail;
      }
    }
  }

  // Renumber: states that end no keyword first (the root stays 0), then the
  // ending ones.
  std::vector<uint32_t> order;
  order.reserve(stateCount);
  for (int ending = 0; ending < 2; ++ending) {
    for (uint32_t state = 0; state < stateCount; ++state) {
      if (ends[state].empty() == (ending == 0)) order.push_back(state);
    }
  }
  std::vector<uint32_t> renamed(stateCount);
  for (uint32_t id = 0; id < stateCount; ++id) renamed[order[id]] = id;
  std::vector<uint32_t> table(stateCount * width);
  for (uint32_t state = 0; state < stateCount; ++state) {
    for (uint32_t cls = 0; cls < width; ++cls) {
      uint32_t target = next_[state * width + cls] >> classShift_;
      table[renamed[state] * width + cls] = renamed[target] << classShift_;
    }
  }
  next_ = std::move(table);
  uint32_t firstOutput = static_cast<uint32_t>(stateCount);
  for (uint32_t id = 0; id < stateCount; ++id) {
    if (!ends[order[id]].empty()) {
      firstOutput = id;
      break;
    }
  }
  firstOutputState_ = firstOutput << classShift_;
  for (uint32_t id = firstOutput; id < stateCount; ++id) {
    outputBegin_.push_back(static_cast<uint32_t>(outputs_.size()));
    const auto& list = ends[order[id]];
    outputs_.insert(outputs_.end(), list.begin(), list.end());
  }
  outputBegin_.push_back(static_cast<uint32_t>(outputs_.size()));
}

KeywordHits KeywordAutomaton::findAll(std::string_view text) const {
  KeywordHits hits;
  auto report = [&](uint32_t state, size_t) {
    uint32_t s = (state - firstOutputState_) >> classShift_;
    for (uint32_t k = outputBegin_[s]; k < outputBegin_[s + 1]; ++k) hits.insert(outputs_[k]);
  };
  constexpr size_t kLanes = 4;
  const size_t overlap = longestKeyword_ > 0 ? longestKeyword_ - 1 : 0;
  if (text.size() < 64 * kLanes + overlap) {
    scan(text, [&hits](size_t keyword, size_t) { hits.insert(keyword); });
    return hits;
  }
  // Lane j starts `overlap` bytes before its stretch, so that a keyword
  // across a cut is still seen whole; a match seen twice is one hit.
  const size_t stretch = text.size() / kLanes;
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const uint32_t* next = next_.data();
  const uint8_t* classes = classOf_.data();
  size_t position[kLanes];
  size_t end[kLanes];
  uint32_t state[kLanes] = {};
  for (size_t j = 0; j < kLanes; ++j) {
    position[j] = j == 0 ? 0 : j * stretch - overlap;
    end[j] = j + 1 == kLanes ? text.size() : (j + 1) * stretch;
  }
  size_t common = end[0] - position[0];
  for (size_t j = 1; j < kLanes; ++j) common = std::min(common, end[j] - position[j]);
  // Four named states, so that they stay in registers.
  const uint8_t* p0 = bytes + position[0];
  const uint8_t* p1 = bytes + position[1];
  const uint8_t* p2 = bytes + position[2];
  const uint8_t* p3 = bytes + position[3];
  uint32_t s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  const uint32_t firstOutput = firstOutputState_;
  for (size_t i = 0; i < common; ++i) {
    s0 = next[s0 + classes[p0[i]]];
    s1 = next[s1 + classes[p1[i]]];
    s2 = next[s2 + classes[p2[i]]];
    s3 = next[s3 + classes[p3[i]]];
    if ((s0 >= firstOutput) | (s1 >= firstOutput) | (s2 >= firstOutput) | (s3 >= firstOutput)) {
      if (s0 >= firstOutput) report(s0, 0);
      if (s1 >= firstOutput) report(s1, 0);
      if (s2 >= firstOutput) report(s2, 0);
      if (s3 >= firstOutput) report(s3, 0);
    }
  }
  state[0] = s0;
  state[1] = s1;
  state[2] = s2;
  state[3] = s3;
  for (size_t j = 0; j < kLanes; ++j) {
    for (size_t i = position[j] + common; i < end[j]; ++i) {
      state[j] = next[state[j] + classes[bytes[i]]];
      if (state[j] >= firstOutputState_) report(state[j], 0);
    }
  }
  return hits;
}

KeywordHits findKeywords(const KeywordAutomaton& automaton, std::string_view text) {
  return automaton.findAll(text);
}

KeywordHits findKeywordsByReference(std::span<const std::string_view> keywords,
                                    std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = static_cast<char>(AsciiLower(static_cast<uint8_t>(c)));
  KeywordHits hits;
  for (size_t k = 0; k < keywords.size() && k < kMaxKeywords; ++k) {
    if (lowered.find(keywords[k]) != std::string::npos) hits.insert(k);
  }
  return hits;
}

}  // namespace klipora::intelligence
