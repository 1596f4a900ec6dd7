#include "app/model_services.h"

#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/model_server_embedder.h"

namespace klipora::app {

ModelServices makeModelServices(const LanguageModelFactory& makeLanguageModel,
                                UserDefaults& defaults, Clock& clock, FileSystem& fileSystem,
                                ImageCodec& imageCodec, Executor& background) {
  ModelServices services;
  services.embedder = intelligence::makeHashedNgramEmbedder();
  if (!makeLanguageModel) {
    services.arbiter = intelligence::makeUnavailableModelArbiter();
    services.categoryEmbedder = intelligence::makeHashedNgramEmbedder();
    return services;
  }
  services.model = makeLanguageModel([&defaults] { return readModelEndpoint(defaults); });
  auto classifier = std::make_unique<intelligence::FoundationModelClassifier>(
      *services.model, clock, fileSystem, imageCodec, background);
  services.classifier = classifier.get();
  services.arbiter = std::move(classifier);
  services.categoryEmbedder = std::make_unique<intelligence::ModelServerEmbedder>(
      *services.model, clock, [c = services.classifier] { return c->isAvailable(); },
      intelligence::makeHashedNgramEmbedder());
  return services;
}

}  // namespace klipora::app
