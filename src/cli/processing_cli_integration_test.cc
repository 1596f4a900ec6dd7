// Processing as a user meets it: screenshots imported with --wait end
// complete, filed and searchable by their text, with or without a daemon; a
// daemon killed in the middle of a bulk import finishes the work when it is
// started again.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::DaemonProcess;

const char* kCode =
    "def load_config(path):\n    import json\n    with open(path) as f:\n"
    "        return json.load(f)\n\nclass Server(Base):\n    def start(self):\n"
    "        self.socket.bind(('0.0.0.0', 8080))";
const char* kReceipt =
    "CORNER COFFEE CO.\nReceipt #48213\nFlat white      $4.50\nCroissant       $3.20\n"
    "Subtotal        $7.70\nTax             $0.62\nTotal           $8.32\nVisa ending 4421";
const char* kChat =
    "Alice  10:42 AM\nHey, are we still on for lunch today?\nBob  10:43 AM\n"
    "Yes! See you at noon\nAlice  10:44 AM\nGreat, I will book a table\nType a message";

class ProcessingCliTest : public ::testing::Test {
 protected:
  ProcessingCliTest() { fs::create_directories(runtime_); }
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return testing::runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_);
  }
  std::string screenshot(const std::string& name, const std::string& text, int seed = 0) {
    testing::TextImageOptions o;
    o.width = 900;
    o.height = 320;
    o.page = static_cast<uint8_t>(250 - seed % 40);
    o.patches.push_back({.text = text, .font = "DejaVu Sans Mono 13"});
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << testing::makeTextImage(o);
    return path;
  }
  // id -> processed item, from `import --wait --json`.
  std::map<std::string, json> importAndWait(const std::vector<std::string>& paths) {
    std::vector<std::string> args = {"import", "--wait", "--json"};
    args.insert(args.end(), paths.begin(), paths.end());
    auto r = klipora(args);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    std::map<std::string, json> byFile;
    json out = json::parse(r.out, nullptr, false);
    if (!out.is_object()) return byFile;
    for (const auto& item : out["processed"]) byFile[item.value("file", "")] = item;
    return byFile;
  }
  void expectFiled(std::map<std::string, json> items) {
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items["code.png"]["state"], "complete");
    EXPECT_EQ(items["code.png"]["category"], "code");
    EXPECT_EQ(items["receipt.png"]["category"], "receipts");
    EXPECT_EQ(items["chat.png"]["category"], "chats");
    auto found = klipora({"search", "--json", "croissant"});
    EXPECT_NE(found.out.find(items["receipt.png"]["id"].get<std::string>()), std::string::npos)
        << found.out << found.err;
  }
  std::vector<std::string> threeScreenshots() {
    return {screenshot("code.png", kCode), screenshot("receipt.png", kReceipt),
            screenshot("chat.png", kChat)};
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string runtime_ = dir_.file("runtime");
};

TEST_F(ProcessingCliTest, ImportAndWaitWithoutADaemonProcessesInTheCommand) {
  expectFiled(importAndWait(threeScreenshots()));
}

// A command's own processing loads its recogniser when the screenshot
// needs it, and does not warm up engines that a daemon keeps for later.
TEST_F(ProcessingCliTest, ImportAndWaitOfOneScreenshotWarmsNothingUp) {
  auto items = importAndWait({screenshot("code.png", kCode)});
  EXPECT_EQ(items["code.png"]["state"], "complete");
  std::ifstream log(home_ + "/Library/Diagnostics/klipora.log");
  std::string text((std::istreambuf_iterator<char>(log)), {});
  EXPECT_NE(text.find("code.png"), std::string::npos) << text;  // the log is the command's
  EXPECT_EQ(text.find("ocr-warmup"), std::string::npos) << text;
}

TEST_F(ProcessingCliTest, ImportAndWaitThroughTheDaemonLeavesAnEmptyQueue) {
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C")) << daemon.errors();
  expectFiled(importAndWait(threeScreenshots()));
  auto status = json::parse(klipora({"status", "--json"}).out, nullptr, false);
  ASSERT_TRUE(status.is_object());
  EXPECT_EQ(status["daemon"]["queue"]["inFlight"], 0);
  EXPECT_EQ(status["items"]["states"]["complete"], 3);
}

TEST_F(ProcessingCliTest, AKilledDaemonFinishesEveryItemAfterARestart) {
  std::vector<std::string> paths;
  for (int i = 0; i < 12; ++i) {
    paths.push_back(screenshot("shot" + std::to_string(i) + ".png",
                               std::string(kReceipt) + "\nOrder " + std::to_string(1000 + i), i));
  }
  {
    DaemonProcess daemon(home_, runtime_);
    ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C"));
    std::vector<std::string> args = {"import"};
    args.insert(args.end(), paths.begin(), paths.end());
    ASSERT_EQ(klipora(args).exitCode, 0);
    daemon.signal(SIGKILL);
    daemon.wait();
  }
  DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C"));
  std::vector<std::string> ids;
  for (const auto& line : json::parse(klipora({"list", "--json"}).out)) ids.push_back(line["id"]);
  ASSERT_EQ(ids.size(), paths.size());
  std::vector<std::string> args = {"wait", "--json"};
  args.insert(args.end(), ids.begin(), ids.end());
  auto waited = klipora(args);
  EXPECT_EQ(waited.exitCode, 0) << waited.out << waited.err;
  auto status = json::parse(klipora({"status", "--json"}).out);
  EXPECT_EQ(status["items"]["states"]["complete"], paths.size());
  // No item was run twice at once: the log never starts an id that is in flight.
  std::ifstream log(home_ + "/Library/Diagnostics/klipora.log");
  std::string text((std::istreambuf_iterator<char>(log)), {});
  EXPECT_EQ(text.find("already in-flight"), std::string::npos);
}

}  // namespace
}  // namespace klipora
