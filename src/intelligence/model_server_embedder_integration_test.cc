// ModelServerEmbedder against the fake server: the server's vectors while it
// answers, the built-in ones while it does not, and a pause after a failure.
#include "intelligence/model_server_embedder.h"

#include <gtest/gtest.h>

#include "intelligence/hashed_ngram_embedder.h"
#include "platform/linux/http_language_model.h"
#include "platform/testing/fake_model_server.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"

namespace klipora::intelligence {
namespace {

using testing::FakeModelReply;
using testing::FakeModelRequest;
using testing::FakeModelServer;

TEST(ModelServerEmbedderTest, ServerVectorsElseTheBuiltInOnes) {
  FakeModelServer server;
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), "fake-model"}; });
  testing::ManualClock clock;
  bool available = true;
  ModelServerEmbedder embedder(model, clock, [&] { return available; },
                               makeHashedNgramEmbedder());
  testing::ScopedLogCapture log;

  auto v = embedder.embed("abba");
  ASSERT_EQ(v.size(), 8u);
  EXPECT_FLOAT_EQ(v[0], std::sqrt(0.5f));
  EXPECT_EQ(embedder.name(), "server:fake-model");

  available = false;
  const size_t builtIn = makeHashedNgramEmbedder()->embed("abba").size();
  EXPECT_EQ(embedder.embed("abba").size(), builtIn);
  EXPECT_EQ(embedder.name(), "hashed-ngram");

  available = true;
  server.setScript([](const FakeModelRequest&) {
    return FakeModelReply::json(501, R"({"error":{"message":"embeddings are not enabled"}})");
  });
  EXPECT_EQ(embedder.embed("abba").size(), builtIn);
  EXPECT_TRUE(log.contains("[CLASSIFY] embed FALLBACK"));
  const size_t asked = server.requests().size();
  EXPECT_EQ(embedder.embed("cab").size(), builtIn);
  EXPECT_EQ(server.requests().size(), asked);  // left alone for a while
  server.setScript(nullptr);
  clock.advance(ModelServerEmbedder::kRetryAfterSeconds);
  EXPECT_EQ(embedder.embed("cab").size(), 8u);
}

}  // namespace
}  // namespace klipora::intelligence
