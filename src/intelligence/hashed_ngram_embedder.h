// HashedNgramEmbedder: the built-in TextEmbedder, used when no model server
// answers. The text is lower-cased and cut into words (runs of letters and
// digits); each word and each character trigram of " word " is hashed into
// one of kHashedNgramDimensions signed buckets, and the sum is scaled to unit
// length. Texts that share words or word stems come out close; meaning
// beyond spelling is not captured. Holds no state: embed() is safe from any
// number of threads.
#pragma once

#include <memory>

#include "platform/text_embedder.h"

namespace klipora::intelligence {

inline constexpr size_t kHashedNgramDimensions = 512;

// Named "hashed-ngram". A text without words embeds as an empty vector.
std::unique_ptr<TextEmbedder> makeHashedNgramEmbedder();

}  // namespace klipora::intelligence
