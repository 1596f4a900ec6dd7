// The cost of the model classifier around the server, and the built-in
// embedder's rate.
//
// 1. Arbitration overhead: the fake server on 127.0.0.1 answers at once.
//    The same request is timed through FoundationModelClassifier::arbitrate
//    and as a bare HTTP exchange of an already built body; the difference is
//    what the classifier adds (prompt, schema, request body, parsing, the
//    time-out watcher). The in-process part alone (prompt, schema, body,
//    answer parsing, no network) is timed too.
// 2. The built-in hashed n-gram embedder: embeddings per second of 2 kB
//    texts on one thread.
// Figures are medians of the rounds of one run; nothing is asserted.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench_stats.h"
#include "intelligence/foundation_model_classifier.h"
#include "intelligence/foundation_model_prompts.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "platform/linux/http_client.h"
#include "platform/linux/http_language_model.h"
#include "platform/linux/main_loop.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/vips_image_codec.h"
#include "platform/testing/fake_model_server.h"

namespace {

using klipora::bench::Median;

using namespace klipora;
using Steady = std::chrono::steady_clock;

double Micros(Steady::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }


class InlineExecutor final : public Executor {
 public:
  void post(std::function<void()> work) override { work(); }
};

std::string OcrText(size_t bytes) {
  const std::string line =
      "error[E0308]: mismatched types --> src/queue.rs:42:17 expected struct Item found "
      "enum Option<Item> help: consider using `?` ";
  std::string text;
  while (text.size() < bytes) text += line;
  text.resize(bytes);
  return text;
}

intelligence::ArbitrationInput Input() {
  intelligence::ArbitrationInput input;
  input.ocrText = OcrText(2000);
  input.candidates = {{"errors", 0.91}, {"code", 0.62}, {"documents", 0.1}};
  input.filename = "Screenshot From 2024-05-01 10-20-30.png";
  input.sourceAppName = "Terminal";
  input.heuristicWinner = library::ScreenshotCategory::errors;
  input.heuristicConfidence = 0.82;
  input.topEvidence = {{"error", 0.5}, {"mismatched", 0.2}, {"expected", 0.1}};
  input.classificationLabels = {{"text", 0.9f}, {"screen", 0.7f}};
  return input;
}

}  // namespace

int main() {
  const nlohmann::json answer = {{"category", "code"},
                                 {"explanation", "A compiler error in an editor."},
                                 {"title", "Rust type error in queue"}};
  testing::FakeModelServer server;
  server.setChatContent(answer);
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), "fake-model"}; });
  SystemClock clock;
  PosixFileSystem fs;
  VipsImageCodec codec;
  InlineExecutor background;
  intelligence::FoundationModelClassifier classifier(model, clock, fs, codec, background);
  const auto input = Input();
  if (!classifier.arbitrate(input)) {
    std::fprintf(stderr, "the classifier did not answer\n");
    return 1;
  }
  const auto url = *parseHttpUrl(server.baseURL());
  // The request body as the classifier builds it: prompt, schema, JSON.
  auto buildBody = [&] {
    return chatCompletionBody({.instructions = "",
                               .prompt = intelligence::arbitrationPrompt(input, false),
                               .schemaName = intelligence::kCategoryClassification,
                               .schemaJSON = intelligence::categoryClassificationSchema(),
                               .image = std::nullopt,
                               .temperature = 0,
                               .maxTokens = 300},
                              "fake-model");
  };
  const std::string body = buildBody();

  constexpr int kRounds = 400;
  std::vector<double> full, bare, local;
  for (int i = 0; i < kRounds; ++i) {
    auto t0 = Steady::now();
    auto a = classifier.arbitrate(input);
    auto t1 = Steady::now();
    auto r = httpExchange(url, {.method = "POST", .path = "/chat/completions", .body = body,
                                .timeoutSeconds = 0, .cancel = nullptr});
    auto t2 = Steady::now();
    // The in-process work of one request: prompt, schema, body, reply.
    auto request = buildBody();
    auto reply = nlohmann::json::parse(r->body);
    auto content = nlohmann::json::parse(reply["choices"][0]["message"]["content"].get<std::string>());
    bool known = false;
    auto mapped = intelligence::mapModelCategory(content["category"], &known);
    auto t3 = Steady::now();
    if (!a || !r || request.empty() || !known || !mapped) return 1;
    full.push_back(Micros(t1 - t0));
    bare.push_back(Micros(t2 - t1));
    local.push_back(Micros(t3 - t2));
  }
  std::printf("Arbitration with the fake server answering at once (median of %d):\n", kRounds);
  std::printf("  arbitrate() end to end          %8.1f us\n", Median(full));
  std::printf("  bare HTTP exchange, same body   %8.1f us\n", Median(bare));
  std::printf("  overhead around the server      %8.1f us   (goal: under 1000 us)\n",
              Median(full) - Median(bare));
  std::printf("  in-process part alone           %8.1f us   (prompt, schema, body, parsing)\n",
              Median(local));

  auto embedder = intelligence::makeHashedNgramEmbedder();
  std::vector<std::string> texts;
  for (int i = 0; i < 64; ++i) texts.push_back(OcrText(2048) + std::to_string(i));
  std::vector<double> rates;
  for (int round = 0; round < 9; ++round) {
    auto t0 = Steady::now();
    size_t n = 0, dims = 0;
    while (Steady::now() - t0 < std::chrono::milliseconds(200)) {
      dims += embedder->embed(texts[n % texts.size()]).size();
      ++n;
    }
    const double seconds = std::chrono::duration<double>(Steady::now() - t0).count();
    if (dims == 0) return 1;
    rates.push_back(double(n) / seconds);
  }
  std::printf("Built-in embedder (%s), 2 kB texts, one thread:\n", embedder->name().c_str());
  std::printf("  %8.0f embeddings per second   (goal: at least 5000)\n", Median(rates));
  return 0;
}
