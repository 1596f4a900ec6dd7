// Feeds arbitrary bytes to the resolver as every one of its inputs: the text,
// the file name, the application id and name, labels, entities and
// similarity scores built from the same bytes. The resolver must not crash
// and must keep its confidence within 0...1.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "intelligence/category_resolver.h"

namespace {

using klipora::intelligence::ResolutionInput;
using klipora::library::ScreenshotCategory;

double DoubleFrom(std::string_view bytes, size_t at) {
  uint64_t bits = 0;
  for (size_t i = 0; i < sizeof bits && at + i < bytes.size(); ++i) {
    bits |= static_cast<uint64_t>(static_cast<uint8_t>(bytes[at + i])) << (8 * i);
  }
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;  // any bit pattern: NaN, infinities, huge and tiny values
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ResolutionInput input;
  input.ocrText = std::string(bytes);
  size_t third = size / 3;
  input.filename = std::string(bytes.substr(0, third));
  input.sourceAppBundleID = std::string(bytes.substr(third, third));
  input.sourceAppName = std::string(bytes.substr(2 * third));
  input.entities = {std::string(bytes.substr(0, third)), std::string(bytes.substr(third))};
  for (size_t at = 0; at + 1 < size && at < 64; at += 8) {
    auto category = static_cast<ScreenshotCategory>(data[at] % 14);
    input.semanticScores[category] = DoubleFrom(bytes, at);
    input.visualVotes[category] = DoubleFrom(bytes, at + 1);
    float confidence = static_cast<float>(DoubleFrom(bytes, at + 2));
    const char* labels[] = {"chat", "video", "design", "feed", "document", "settings"};
    input.classificationLabels.push_back({labels[data[at] % 6], confidence});
  }
  auto result = klipora::intelligence::CategoryResolver().resolve(input);
  if (!(result.confidence >= 0 && result.confidence <= 1)) std::abort();
  if (result.candidates.size() > 4) std::abort();
  for (const auto& candidate : result.candidates) {
    if (!std::isfinite(candidate.score)) std::abort();
  }
  if (result.primaryCategory && !(result.candidates.front().score > 0)) std::abort();
  return 0;
}
