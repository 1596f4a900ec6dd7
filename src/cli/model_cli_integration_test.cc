// klipora model and klipora classify --model as a user meets them: with no
// server at all, against the fake server, and with a server that is down.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/testing/fake_model_server.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::FakeModelServer;
using testing::runKlipora;

class ModelCliTest : public ::testing::Test {
 protected:
  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(ModelCliTest, WithoutAServerTheModelIsUnavailableAndSaysWhy) {
  auto r = runKlipora(home_, {"model", "status"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Endpoint: none\nAvailability: unavailable(notConfigured)\nModel: none\n"
                       "Why: no model server is set; `klipora model use URL` sets one"),
            std::string::npos)
      << r.out;

  r = runKlipora(home_, {"classify", "--json", "--model", "--text", "error: build failed"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "errors");
  EXPECT_TRUE(out["model"].is_null());

  r = runKlipora(home_, {"model", "use", "https://example.com/v1"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("is not an http:// URL"), std::string::npos) << r.err;
}

TEST_F(ModelCliTest, UseStatusClassifyAndOff) {
  FakeModelServer server;
  server.setChatContent({{"category", "code"},
                         {"explanation", "An editor with source code."},
                         {"title", "\"Cargo build error in parser\""}});
  auto r = runKlipora(home_, {"model", "use", server.baseURL(), "--model", "fake-model"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Availability: available\nModel: fake-model"), std::string::npos) << r.out;

  r = runKlipora(home_, {"model", "status", "--json"});
  json status = json::parse(r.out);
  EXPECT_EQ(status["endpoint"], server.baseURL());
  EXPECT_EQ(status["availability"], "available");
  EXPECT_EQ(status["model"], "fake-model");

  r = runKlipora(home_, {"classify", "--json", "--model", "--text", "error: build failed"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "errors");  // the rules' result stays primary
  EXPECT_EQ(out["model"], (json{{"category", "code"},
                                {"explanation", "An editor with source code."},
                                {"title", "Cargo build error in parser"}}));
  ASSERT_FALSE(server.chatRequests().empty());
  EXPECT_EQ(server.chatRequests().back().body["model"], "fake-model");

  // An answer outside the list is no answer.
  server.setChatContent({{"category", "video"}, {"explanation", "x"}, {"title", "y"}});
  r = runKlipora(home_, {"classify", "--json", "--model", "--text", "error: build failed"});
  EXPECT_TRUE(json::parse(r.out)["model"].is_null());

  r = runKlipora(home_, {"model", "off"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  r = runKlipora(home_, {"model", "status", "--json"});
  EXPECT_EQ(json::parse(r.out)["availability"], "unavailable(notConfigured)");
}

TEST_F(ModelCliTest, ServerDownIsUnreachable) {
  std::string url;
  {
    FakeModelServer gone;
    url = gone.baseURL();
  }
  auto r = runKlipora(home_, {"model", "use", url});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Availability: unavailable(serverUnreachable)"), std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("Why: cannot reach 127.0.0.1"), std::string::npos) << r.out;
  r = runKlipora(home_, {"classify", "--model", "--text", "error: build failed"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Model: no usable answer (unavailable(serverUnreachable)"),
            std::string::npos)
      << r.out;
}

}  // namespace
}  // namespace klipora
