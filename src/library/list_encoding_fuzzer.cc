// Decoding of stored list fields must accept any text: these strings arrive
// from other devices through sync and from older builds.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "library/list_encoding.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  using namespace klipora::library;
  auto pieces = splitList(text);
  if (joinList(pieces) != text) __builtin_trap();
  (void)decodeFloatList(text);
  for (const auto& c : decodeCandidates(text)) {
    if (c.category.find(':') != std::string::npos) __builtin_trap();
  }
  return 0;
}
