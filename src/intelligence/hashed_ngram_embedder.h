// Stand-in until the built-in embedder lands: same interface.
#pragma once
#include <memory>
#include "platform/text_embedder.h"
namespace klipora::intelligence {
std::unique_ptr<TextEmbedder> makeHashedNgramEmbedder();
}  // namespace klipora::intelligence
