// HttpLanguageModel against the fake server on 127.0.0.1: what it sends, how
// it reads availability, answers and embeddings, and how it fails.
#include "platform/linux/http_language_model.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/linux/http_client.h"
#include "platform/testing/fake_model_server.h"

namespace klipora {
namespace {

using testing::FakeModelReply;
using testing::FakeModelRequest;
using testing::FakeModelServer;
using Json = nlohmann::json;

ModelRequest SampleRequest() {
  return {.instructions = "Pick one.",
          .prompt = "File: a.png",
          .schemaName = "CategoryClassification",
          .schemaJSON = R"({"type":"object","properties":{"category":{"type":"string"}}})",
          .image = std::nullopt,
          .temperature = 0,
          .maxTokens = 100};
}

// A port that nothing listens on: bound, then closed.
std::string DeadEndpoint() {
  std::string url;
  {
    FakeModelServer server;
    url = server.baseURL();
  }
  return url;
}

TEST(HttpLanguageModelTest, AvailabilityTellsWhyNot) {
  HttpLanguageModel unset([] { return ModelEndpoint{}; });
  EXPECT_EQ(unset.availability().availability, ModelAvailability::notConfigured);
  EXPECT_EQ(availabilityText(unset.availability().availability), "unavailable(notConfigured)");

  const std::string dead = DeadEndpoint();
  HttpLanguageModel down([&] { return ModelEndpoint{dead, ""}; });
  auto report = down.availability();
  EXPECT_EQ(report.availability, ModelAvailability::serverUnreachable);
  EXPECT_NE(report.detail.find("cannot reach 127.0.0.1"), std::string::npos) << report.detail;

  FakeModelServer server;
  HttpLanguageModel first([&] { return ModelEndpoint{server.baseURL(), ""}; });
  report = first.availability();
  EXPECT_EQ(report.availability, ModelAvailability::available);
  EXPECT_EQ(report.modelName, "fake-model");
  EXPECT_EQ(server.requests().back().path, "/v1/models");

  HttpLanguageModel missing([&] { return ModelEndpoint{server.baseURL(), "llava"}; });
  report = missing.availability();
  EXPECT_EQ(report.availability, ModelAvailability::modelNotReady);
  EXPECT_NE(report.detail.find("llava"), std::string::npos);

  server.setScript([](const FakeModelRequest&) {
    return FakeModelReply::json(503, R"({"error":{"message":"Loading model"}})");
  });
  report = first.availability();
  EXPECT_EQ(report.availability, ModelAvailability::modelNotReady);
  EXPECT_NE(report.detail.find("Loading model"), std::string::npos);

  server.setScript([](const FakeModelRequest&) { return FakeModelReply::json(200, "<html>"); });
  EXPECT_EQ(first.availability().availability, ModelAvailability::unknownReason);
  server.setScript([](const FakeModelRequest&) { return FakeModelServer::modelsReply({}); });
  EXPECT_EQ(first.availability().availability, ModelAvailability::modelNotReady);
}

TEST(HttpLanguageModelTest, SendsSchemaGuidedChatWithTheImageAsDataURL) {
  FakeModelServer server;
  server.setChatContent(Json{{"category", "code"}});
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), "fake-model"}; });
  ModelRequest request = SampleRequest();
  request.image = ModelImage{std::string("\xff\xd8\xff", 3), "image/jpeg"};
  CancelSignal cancel;
  auto answer = model.respond(request, cancel);
  ASSERT_TRUE(answer) << answer.error().message();
  EXPECT_EQ(Json::parse(*answer), (Json{{"category", "code"}}));

  auto sent = server.chatRequests();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].method, "POST");
  const Json& body = sent[0].body;
  EXPECT_EQ(body["model"], "fake-model");
  EXPECT_EQ(body["stream"], false);
  EXPECT_EQ(body["messages"][0], (Json{{"role", "system"}, {"content", "Pick one."}}));
  EXPECT_EQ(body["messages"][1]["role"], "user");
  EXPECT_EQ(body["messages"][1]["content"][0], (Json{{"type", "text"}, {"text", "File: a.png"}}));
  EXPECT_EQ(body["messages"][1]["content"][1]["image_url"]["url"], "data:image/jpeg;base64,/9j/");
  EXPECT_EQ(body["response_format"]["type"], "json_schema");
  EXPECT_EQ(body["response_format"]["json_schema"]["name"], "CategoryClassification");
  EXPECT_EQ(body["response_format"]["json_schema"]["schema"]["properties"]["category"]["type"],
            "string");

  // Without an image the user message is plain text; without a model name
  // the server picks its own.
  HttpLanguageModel unnamed([&] { return ModelEndpoint{server.baseURL(), ""}; });
  ASSERT_TRUE(unnamed.respond(SampleRequest(), cancel));
  const Json plain = server.chatRequests().back().body;
  EXPECT_EQ(plain["messages"][1]["content"], "File: a.png");
  EXPECT_FALSE(plain.contains("model"));
}

TEST(HttpLanguageModelTest, ReadsChunkedAndUnsizedReplies) {
  const std::string content = FakeModelServer::chatReply("{\"a\":1}").body;
  char size[16];
  std::snprintf(size, sizeof size, "%zx", content.size() - 10);
  FakeModelServer server([&](const FakeModelRequest&) {
    return FakeModelReply::bytes("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" +
                                 std::string(size) + "\r\n" + content.substr(0, content.size() - 10) +
                                 "\r\na\r\n" + content.substr(content.size() - 10) + "\r\n0\r\n\r\n");
  });
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), ""}; });
  CancelSignal cancel;
  auto answer = model.respond(SampleRequest(), cancel);
  ASSERT_TRUE(answer) << answer.error().message();
  EXPECT_EQ(*answer, "{\"a\":1}");

  server.setScript([&](const FakeModelRequest&) {
    return FakeModelReply::bytes("HTTP/1.0 200 OK\r\n\r\n" + content);
  });
  answer = model.respond(SampleRequest(), cancel);
  ASSERT_TRUE(answer) << answer.error().message();
  EXPECT_EQ(*answer, "{\"a\":1}");
}

TEST(HttpLanguageModelTest, FailuresAreErrorsNamingTheCause) {
  CancelSignal cancel;
  HttpLanguageModel unset([] { return ModelEndpoint{}; });
  EXPECT_EQ(unset.respond(SampleRequest(), cancel).error().code(), Status::Code::kUnavailable);

  const std::string dead = DeadEndpoint();
  HttpLanguageModel down([&] { return ModelEndpoint{dead, ""}; });
  auto refused = down.respond(SampleRequest(), cancel);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code(), Status::Code::kUnavailable);

  FakeModelServer server;
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), ""}; });
  server.setScript([](const FakeModelRequest&) {
    return FakeModelReply::json(500, R"({"error":{"message":"out of memory"}})");
  });
  auto failed = model.respond(SampleRequest(), cancel);
  ASSERT_FALSE(failed);
  EXPECT_NE(failed.error().message().find("HTTP 500: out of memory"), std::string::npos);

  server.setScript([](const FakeModelRequest&) { return FakeModelReply::json(200, "{not json"); });
  EXPECT_EQ(model.respond(SampleRequest(), cancel).error().code(), Status::Code::kCorruption);
  server.setScript([](const FakeModelRequest&) { return FakeModelReply::json(200, "{\"choices\":[]}"); });
  EXPECT_EQ(model.respond(SampleRequest(), cancel).error().code(), Status::Code::kCorruption);
  server.setScript([](const FakeModelRequest&) { return FakeModelReply::bytes("SMTP ready\r\n\r\n"); });
  EXPECT_EQ(model.respond(SampleRequest(), cancel).error().code(), Status::Code::kCorruption);
  server.setScript([](const FakeModelRequest&) {
    return FakeModelReply::bytes("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"cho");
  });
  EXPECT_EQ(model.respond(SampleRequest(), cancel).error().code(), Status::Code::kUnavailable);
}

TEST(HttpLanguageModelTest, CancellingAHungRequestHangsUp) {
  FakeModelServer server([](const FakeModelRequest&) { return FakeModelReply::never(); });
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), ""}; });
  CancelSignal cancel;
  Result<std::string> answer = std::string();
  std::thread call([&] { answer = model.respond(SampleRequest(), cancel); });
  // The request is under way once the server holds it.
  while (server.requests().empty()) std::this_thread::yield();
  cancel.cancel();
  call.join();
  ASSERT_FALSE(answer);
  EXPECT_EQ(answer.error().code(), Status::Code::kCancelled);
  EXPECT_TRUE(server.waitForAbandoned(1, 30));

  // A signal that fired before the call stops it before it sends anything.
  auto before = server.requests().size();
  EXPECT_EQ(model.respond(SampleRequest(), cancel).error().code(), Status::Code::kCancelled);
  EXPECT_EQ(server.requests().size(), before);
}

TEST(HttpLanguageModelTest, EmbedsThroughTheServer) {
  FakeModelServer server;
  HttpLanguageModel model([&] { return ModelEndpoint{server.baseURL(), "fake-model"}; });
  auto vectors = model.embed({"abba", "hedge"});
  ASSERT_TRUE(vectors) << vectors.error().message();
  ASSERT_EQ(vectors->size(), 2u);
  EXPECT_EQ((*vectors)[0], (std::vector<float>{2, 2, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ((*vectors)[1][4], 2);
  EXPECT_EQ(server.requests().back().body["input"], (Json{"abba", "hedge"}));

  server.setScript([](const FakeModelRequest&) { return FakeModelReply::json(200, R"({"data":[]})"); });
  EXPECT_EQ(model.embed({"x"}).error().code(), Status::Code::kCorruption);
}

}  // namespace
}  // namespace klipora
