// Desktop settings read through GSettings from a schema compiled for the test
// and a key file of its own, as a screenshot tool's schema is read from the
// installed ones and the desktop's store.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/linux/gio_desktop_settings.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

constexpr char kSchema[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<schemalist>
  <schema id="org.example.shooter" path="/org/example/shooter/">
    <key name="auto-save-directory" type="s"><default>''</default></key>
    <key name="delay" type="i"><default>0</default></key>
  </schema>
  <schema id="org.example.relocatable">
    <key name="folder" type="s"><default>'/x'</default></key>
  </schema>
</schemalist>
)";

bool Compile(const std::string& folder) {
  pid_t pid = ::fork();
  if (pid == 0) {
    ::execlp("glib-compile-schemas", "glib-compile-schemas", folder.c_str(), nullptr);
    ::_exit(127);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(GioDesktopSettingsTest, ReadsStoredTextOrDefaultAndNeverOpensAMissingSchema) {
  testing::TempDir dir;
  const std::string schemas = dir.file("schemas");
  ASSERT_EQ(::mkdir(schemas.c_str(), 0700), 0);
  std::ofstream(schemas + "/org.example.shooter.gschema.xml") << kSchema;
  if (!Compile(schemas)) GTEST_SKIP() << "glib-compile-schemas is not installed";
  const std::string keyFile = dir.file("keyfile");

  GioDesktopSettings settings(schemas, keyFile);
  EXPECT_EQ(settings.text("org.example.shooter", "auto-save-directory"), "");  // the default
  std::ofstream(keyFile) << "[org/example/shooter]\n"
                            "auto-save-directory='file:///home/u/My%20Shots/'\n";
  EXPECT_EQ(settings.text("org.example.shooter", "auto-save-directory"),
            "file:///home/u/My%20Shots/");

  // Each of these would end the process if it were opened.
  EXPECT_EQ(settings.text("org.example.not-installed", "auto-save-directory"), std::nullopt);
  EXPECT_EQ(settings.text("org.example.shooter", "no-such-key"), std::nullopt);
  EXPECT_EQ(settings.text("org.example.shooter", "delay"), std::nullopt);  // not text
  EXPECT_EQ(settings.text("org.example.relocatable", "folder"), std::nullopt);

  GioDesktopSettings installed;
  EXPECT_EQ(installed.text("org.example.not-installed", "auto-save-directory"), std::nullopt);
}

}  // namespace
}  // namespace klipora
