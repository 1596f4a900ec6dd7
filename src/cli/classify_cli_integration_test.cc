// klipora classify as a user meets it: text from a file, facts on the command
// line, and a stored item.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::runKlipora;

class ClassifyCliTest : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(ClassifyCliTest, ReceiptTextIsReceiptsAndSaysWhy) {
  std::string receipt = write("receipt.txt",
                              "CORNER COFFEE CO.\nReceipt\nOrder #48213  05/01/2024 08:14\n"
                              "Flat white        $4.50\nSubtotal          $4.50\n"
                              "Tax               $0.40\nTotal:            $4.90\n"
                              "Visa card ending 4421\nThank you for your purchase!\n");
  auto r = runKlipora(home_, {"classify", "--json", "--text-file", receipt});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "receipts");
  EXPECT_GT(out["confidence"].get<double>(), 0.9);
  EXPECT_EQ(out["candidates"][0]["category"], "receipts");
  EXPECT_EQ(out["candidates"][0]["evidence"][0],
            json({{"source", "ocrText"}, {"signal", "receipt"}, {"weight", 0.15}}));
  EXPECT_EQ(out["explanation"].get<std::string>().rfind("Receipts (", 0), 0u);
  // Classifying text needs no library.
  EXPECT_FALSE(std::ifstream(home_ + "/Klipora.store").good());
}

TEST_F(ClassifyCliTest, FactsOnTheCommandLine) {
  auto r = runKlipora(home_, {"classify", "--json", "--app", "org.gnome.Terminal"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "code");
  EXPECT_DOUBLE_EQ(out["confidence"].get<double>(), 0.8125);

  r = runKlipora(home_, {"classify", "--json", "--label", "video=0.5", "--label", "chat",
                         "--entity", "ann@example.com", "--filename", "x.png"});
  out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "chats");  // 0.1 + 0.03 against 0.1
  EXPECT_EQ(out["candidates"].size(), 2u);

  r = runKlipora(home_, {"classify", "--json"});
  EXPECT_EQ(json::parse(r.out)["primary"], nullptr);
  EXPECT_EQ(json::parse(r.out)["explanation"], "Uncategorized (0% confidence)");
}

TEST_F(ClassifyCliTest, BadOptionsAreUsageErrors) {
  auto r = runKlipora(home_, {"classify", "--label", "chat=high"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("LABEL=CONFIDENCE"), std::string::npos);
  EXPECT_EQ(runKlipora(home_, {"classify", "--text", "a", "--text-file", "b"}).exitCode, 2);
  EXPECT_EQ(runKlipora(home_, {"classify", "--item", "x", "--text", "a"}).exitCode, 2);
  EXPECT_EQ(runKlipora(home_, {"classify", "--item", "not-an-id"}).exitCode, 2);
  r = runKlipora(home_, {"classify", "--text-file", dir_.file("missing.txt")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("cannot read"), std::string::npos);
}

TEST_F(ClassifyCliTest, StoredItem) {
  std::string png = write("invoice-march.png",
                          testing::makeTestImage({}));
  auto imported = runKlipora(home_, {"import", "--json", png});
  ASSERT_EQ(imported.exitCode, 0) << imported.err;
  std::string id = json::parse(imported.out)[0]["id"];

  auto r = runKlipora(home_, {"classify", "--json", "--item", id});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["primary"], "receipts");  // the file name says "invoice"
  EXPECT_EQ(out["candidates"][0]["evidence"][0]["source"], "filename");

  r = runKlipora(home_, {"classify", "--item", "6F9619FF-8B86-D011-B42D-00C04FC964FF"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("no item with id"), std::string::npos);
}

}  // namespace
}  // namespace klipora
