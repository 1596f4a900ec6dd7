// Feeds arbitrary bytes to the text analyses as OCR text and as a model's
// title. Nothing may crash, every limit must hold, and all that comes out
// must be valid UTF-8 (it goes to the store, JSON and the search index).
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "intelligence/generated_title.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/text_enrichment.h"
#include "intelligence/text_words.h"
#include "library/search_text.h"

namespace {

void RequireValid(std::string_view text) {
  if (klipora::library::validUtf8(text) != text) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace klipora::intelligence;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto enrichment = enrichText(bytes, {{"a", 3}}, size % 7);
  if (enrichment.entities.size() > kMaxEntities) std::abort();
  if (enrichment.keywords.size() > kMaxKeywords) std::abort();
  for (const auto& entity : enrichment.entities) {
    if (entity.empty()) std::abort();
    RequireValid(entity);
  }
  for (const auto& keyword : enrichment.keywords) RequireValid(keyword);
  if (enrichment.summary) {
    if (characterCount(*enrichment.summary) > kMaxSummaryLength) std::abort();
    RequireValid(*enrichment.summary);
  }
  if (keywordCandidates(bytes).size() > kMaxKeywordCandidates) std::abort();

  std::string title = cleanModelTitle(klipora::library::validUtf8(bytes));
  if (characterCount(title) > kMaxGeneratedTitleLength) std::abort();
  RequireValid(title);

  auto vector = makeHashedNgramEmbedder()->embed(bytes);
  if (!vector.empty() && vector.size() != kHashedNgramDimensions) std::abort();
  return 0;
}
