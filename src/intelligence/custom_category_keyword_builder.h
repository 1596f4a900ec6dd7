// CustomCategoryKeywordBuilder: turns the description of a user category
// into subject keywords and a semantic centroid, stores them on the
// category, then asks the language model for more terms and stores the
// enriched set. Keywords are the description's nouns and adjectives in
// their base forms (the lexicon decides; a description in a language the
// lexicon does not know keeps its words as they are), sanitised: trimmed,
// lower-cased, at least 3 characters, no stop words, no duplicates. The
// centroid is the mean of the terms' embeddings, normalised; when no term
// has one, the embedding of the whole description.
//
// Before every write the category is fetched again; when it was deleted or
// its description changed meanwhile, nothing is written ("kw-build STALE").
//
// Thread rules: the calls that take a context run on the thread that owns
// it; buildAndEnrich() blocks while the model answers (within its time
// limit). extract(), sanitize() and computeCentroid() are safe anywhere.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "intelligence/model_arbiter.h"
#include "library/model_context.h"
#include "library/sql_value.h"
#include "platform/lexicon.h"
#include "platform/text_embedder.h"

namespace klipora::intelligence {

inline constexpr std::array<std::string_view, 49> kKeywordStopWords = {
    "screenshot", "screenshots", "screen",  "screens",  "screengrab",  "screencap", "image",
    "images",     "img",         "picture", "pictures", "pic",         "pics",      "photo",
    "photos",     "photograph",  "photographs", "capture", "captures", "snapshot",  "snapshots",
    "snap",       "shot",        "shots",   "thumbnail", "thumbnails", "wallpaper", "thing",
    "things",     "stuff",       "item",    "items",    "example",     "examples",  "kind",
    "kinds",      "type",        "types",   "sort",     "various",     "general",   "related",
    "with",       "the",         "and",     "for",      "showing",     "containing", "about"};

// The centroid as stored in `embeddingData`: little-endian 32-bit floats.
library::Bytes encodeCentroid(const std::vector<float>& centroid);
std::vector<float> decodeCentroid(const library::Bytes& bytes);

class CustomCategoryKeywordBuilder {
 public:
  CustomCategoryKeywordBuilder(Lexicon& lexicon, TextEmbedder& embedder, ModelArbiter& model)
      : lexicon_(lexicon), embedder_(embedder), model_(model) {}

  // The sanitised content words of `text`, in order of first appearance.
  std::vector<std::string> extract(std::string_view text);
  static std::vector<std::string> sanitize(const std::vector<std::string>& terms);
  // extract() joined with ", ".
  std::string sanitizedText(std::string_view text);
  std::optional<std::vector<float>> computeCentroid(const std::vector<std::string>& terms,
                                                    const std::string& fallbackText);

  // Builds and stores the base keywords and centroid, calls `onApplied`;
  // then stores the model's enrichment (when it answers) and calls
  // `onEnrichFinished`. An empty description is read from the name.
  // Returns the failure of a save; a stale category is not a failure.
  Status buildAndEnrich(const UUID& categoryID, const std::string& description,
                        library::ModelContext& context, std::function<void()> onApplied = {},
                        std::function<void()> onEnrichFinished = {});
  // A category that arrived by sync: keywords without a centroid get one;
  // no keywords at all are rebuilt from the description.
  Status healAfterSync(const UUID& categoryID, library::ModelContext& context);

  // healAfterSync() in three steps, for a caller whose thread must not wait
  // for the model or the embedder: prepareHeal() reads the category on the
  // context's thread (nothing when it is gone or needs nothing), computeHeal()
  // builds the keywords and centroids on any thread (it blocks while the
  // model expands them), applyHeal() stores them on the context's thread
  // unless the category was deleted or described anew meanwhile.
  struct Heal {
    UUID categoryID;
    std::string name;
    std::string description;  // as read; a different one on apply is stale
    bool rebuild = false;     // no keywords came: built from the description
    std::vector<std::string> keywords;
    std::optional<std::vector<float>> centroid;
    bool modelAvailable = false;
    // The keywords with the model's terms, when it added any.
    std::optional<std::vector<std::string>> enriched;
    std::optional<std::vector<float>> enrichedCentroid;
  };
  Result<std::optional<Heal>> prepareHeal(const UUID& categoryID, library::ModelContext& context);
  void computeHeal(Heal& heal);
  Status applyHeal(const Heal& heal, library::ModelContext& context);

 private:
  // The model's terms added to `base`, when it answered with any new one.
  std::optional<std::vector<std::string>> enrichedTerms(const std::string& name,
                                                        const std::string& source,
                                                        const std::vector<std::string>& base);

  // Writes keywords and centroid when the category still has `description`.
  Result<bool> storeIfCurrent(const UUID& categoryID, const std::string& description,
                              const std::vector<std::string>& keywords,
                              const std::optional<std::vector<float>>& centroid,
                              library::ModelContext& context, const char* tag);

  Lexicon& lexicon_;
  TextEmbedder& embedder_;
  ModelArbiter& model_;
};

}  // namespace klipora::intelligence
