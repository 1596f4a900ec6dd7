// Summaries of a benchmark's timings: the median and the 95th percentile
// (nearest rank). Both take their samples by value and sort the copy.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace klipora::bench {

inline double Median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

inline double P95(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, static_cast<size_t>(0.95 * static_cast<double>(v.size())))];
}

}  // namespace klipora::bench
