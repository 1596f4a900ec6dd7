// klipora model and klipora classify --model as a user meets them: with no
// server at all, against the fake server, and with a server that is down.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
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

// Processing asks the model once the rules have spoken: the model's category
// and title land on the item, and its combined answer files the screenshot
// under the user's category.
TEST_F(ModelCliTest, ProcessingTakesTheModelsAnswer) {
  FakeModelServer server;
  server.setChatContent({{"category", "design"},
                         {"explanation", "A design canvas."},
                         {"customCategoryNumber", 1},
                         {"customCategoryName", "Mockups"},
                         {"customExplanation", "A mockup."},
                         {"title", "Figma onboarding flow"}});
  ASSERT_EQ(runKlipora(home_, {"model", "use", server.baseURL()}).exitCode, 0);
  auto r = runKlipora(home_, {"categories", "add", "Mockups", "--description",
                              "app mockups and wireframes"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  testing::TextImageOptions o;
  o.width = 700;
  o.height = 200;
  o.patches.push_back({.text = "Welcome screen\nGet started\nSkip", .font = "DejaVu Sans 14"});
  const std::string image = dir_.file("shot.png");
  std::ofstream(image, std::ios::binary) << testing::makeTextImage(o);
  r = runKlipora(home_, {"import", "--wait", "--json", image});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  json processed = json::parse(r.out)["processed"][0];
  EXPECT_EQ(processed["category"], "design");
  EXPECT_EQ(processed["title"], "Figma onboarding flow");
  r = runKlipora(home_, {"categories", "list", "--json"});
  EXPECT_EQ(json::parse(r.out)[0]["items"], 1) << r.out;
  // The request carried the screenshot and the user's category.
  auto sent = server.chatRequests();
  ASSERT_FALSE(sent.empty());
  const json content = sent.back().body["messages"][1]["content"];
  ASSERT_TRUE(content.is_array());
  EXPECT_NE(content[0]["text"].get<std::string>().find("User-defined categories:\n1. Mockups"),
            std::string::npos);
  EXPECT_TRUE(content[1]["image_url"]["url"].get<std::string>().starts_with(
      "data:image/jpeg;base64,"));
}

// A running daemon takes the server set with `klipora model use` at once,
// and goes back to the rules alone after `klipora model off`.
TEST_F(ModelCliTest, ARunningDaemonFollowsModelUseAndOff) {
  const std::string runtime = dir_.file("runtime");
  std::filesystem::create_directories(runtime);
  auto klipora = [&](const std::vector<std::string>& args) {
    return runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime);
  };
  auto shot = [&](const std::string& name, const std::string& text) {
    testing::TextImageOptions o;
    o.width = 700;
    o.height = 200;
    o.patches.push_back({.text = text, .font = "DejaVu Sans 14"});
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << testing::makeTextImage(o);
    return path;
  };
  FakeModelServer server;
  server.setChatContent(
      {{"category", "travel"}, {"explanation", "A boarding pass."}, {"title", "Lisbon boarding pass"}});
  testing::DaemonProcess daemon(home_, runtime);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C")) << daemon.errors();

  auto r = klipora({"model", "use", server.baseURL()});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  r = klipora({"import", "--wait", "--json", shot("a.png", "Gate 12 Seat 14C Boarding 09:40")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(json::parse(r.out)["processed"][0]["title"], "Lisbon boarding pass") << r.out;
  EXPECT_FALSE(server.chatRequests().empty());

  r = klipora({"model", "off"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const size_t asked = server.requests().size();
  r = klipora({"import", "--wait", "--json", shot("b.png", "Gate 7 Seat 2A Boarding 11:05")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(json::parse(r.out)["processed"][0]["title"], "Lisbon boarding pass") << r.out;
  EXPECT_EQ(server.requests().size(), asked);  // nothing sent once the endpoint is gone
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

}  // namespace
}  // namespace klipora
