#include "platform/user_defaults.h"

#include <gtest/gtest.h>

#include "platform/testing/log_capture.h"
#include "platform/testing/memory_file_system.h"

namespace klipora {
namespace {

constexpr char kPath[] = "/home/u/Klipora/defaults.json";

TEST(UserDefaultsTest, ValuesPersistAcrossInstances) {
  testing::MemoryFileSystem fs;
  {
    UserDefaults defaults(fs, kPath);
    ASSERT_TRUE(defaults.load().ok());  // a missing file is empty defaults
    EXPECT_FALSE(defaults.boolForKey("AppCoordinator.repairedAutomaticUserTitles.v1"));
    ASSERT_TRUE(defaults.setBool("AppCoordinator.repairedAutomaticUserTitles.v1", true).ok());
    ASSERT_TRUE(defaults.setStringList("ocr.languages", {"eng", "deu"}).ok());
    ASSERT_TRUE(defaults.setString("model.endpoint", "http://127.0.0.1:8080").ok());
  }
  UserDefaults again(fs, kPath);
  ASSERT_TRUE(again.load().ok());
  EXPECT_TRUE(again.boolForKey("AppCoordinator.repairedAutomaticUserTitles.v1"));
  EXPECT_EQ(again.stringListForKey("ocr.languages"), (std::vector<std::string>{"eng", "deu"}));
  EXPECT_EQ(again.stringForKey("model.endpoint"), "http://127.0.0.1:8080");
  EXPECT_FALSE(again.doubleForKey("model.endpoint"));  // wrong type reads as absent
  ASSERT_TRUE(again.removeObject("model.endpoint").ok());
  EXPECT_FALSE(again.stringForKey("model.endpoint"));
}

TEST(UserDefaultsTest, BrokenFileIsReportedAndKeptAsideBeforeTheFirstWrite) {
  testing::MemoryFileSystem fs;
  fs.addFile(kPath, "{\"flag\": tru");
  testing::ScopedLogCapture logs;
  UserDefaults defaults(fs, kPath);
  Status s = defaults.load();
  EXPECT_EQ(s.code(), Status::Code::kCorruption);
  EXPECT_NE(s.message().find(kPath), std::string::npos);
  EXPECT_FALSE(defaults.boolForKey("flag"));
  ASSERT_TRUE(defaults.setBool("flag", true).ok());
  EXPECT_EQ(*fs.readFile(std::string(kPath) + ".corrupt-1"), "{\"flag\": tru");
  UserDefaults again(fs, kPath);
  ASSERT_TRUE(again.load().ok());
  EXPECT_TRUE(again.boolForKey("flag"));
}

}  // namespace
}  // namespace klipora
