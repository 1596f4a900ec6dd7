// Replies come from whatever listens at the configured endpoint: any bytes
// must give a reply, "more needed" or an error, and a reply complete before
// the end of the stream must stay the same at its end.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/linux/http_client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto open = klipora::parseHttpReply(bytes, false);
  auto ended = klipora::parseHttpReply(bytes, true);
  if (ended && !*ended) __builtin_trap();  // at the end there is always an answer
  if (open && *open) {
    if (!ended || !*ended || (*ended)->body != (*open)->body ||
        (*ended)->status != (*open)->status) {
      __builtin_trap();
    }
  }
  // Every prefix is read without harm.
  for (size_t cut = 0; cut < size; cut += 1 + size / 16) {
    (void)klipora::parseHttpReply(bytes.substr(0, cut), false);
  }
  return 0;
}
