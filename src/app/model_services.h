// ModelServices: the language model of a process with its classifier, and
// the text embedder, wired the one way processing and the commands share.
// With no model factory (a test of something else) the arbiter is the
// unavailable one and `classifier` is null.
//
// Thread rules: as each service says; the bundle is made and destroyed on
// one thread, after every call into it has returned.
#pragma once

#include <memory>

#include "intelligence/foundation_model_classifier.h"
#include "intelligence/model_arbiter.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/image_codec.h"
#include "platform/language_model.h"
#include "platform/text_embedder.h"
#include "platform/user_defaults.h"

namespace klipora::app {

struct ModelServices {
  std::unique_ptr<LanguageModel> model;
  std::unique_ptr<intelligence::ModelArbiter> arbiter;
  intelligence::FoundationModelClassifier* classifier = nullptr;  // owned by `arbiter`
  // The built-in embedder: fast and always there, for the built-in
  // categories' likeness to the library's examples.
  std::unique_ptr<TextEmbedder> embedder;
  // The server's embeddings while the model is available, else the
  // built-in ones: for the keywords and matching of user categories.
  std::unique_ptr<TextEmbedder> categoryEmbedder;
};

// The model reads its endpoint from `defaults` before every request, so a
// change made elsewhere takes effect once `defaults` is reloaded.
// `background` runs the warm-up and must outlive the bundle's use.
ModelServices makeModelServices(const LanguageModelFactory& makeLanguageModel,
                                UserDefaults& defaults, Clock& clock, FileSystem& fileSystem,
                                ImageCodec& imageCodec, Executor& background);

}  // namespace klipora::app
