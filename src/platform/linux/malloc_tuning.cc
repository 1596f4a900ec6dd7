#include "platform/linux/malloc_tuning.h"

#include <malloc.h>

#include <cstdlib>

namespace klipora {

void limitMallocArenas() {
  // The user's own setting wins.
  if (std::getenv("MALLOC_ARENA_MAX") == nullptr) mallopt(M_ARENA_MAX, 2);
}

}  // namespace klipora
