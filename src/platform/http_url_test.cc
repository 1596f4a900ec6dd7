#include "platform/http_url.h"

#include <gtest/gtest.h>

namespace klipora {
namespace {

TEST(HttpUrlTest, ReadsHostPortAndPath) {
  auto url = parseHttpUrl("http://127.0.0.1:8080/v1/");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->host, "127.0.0.1");
  EXPECT_EQ(url->port, "8080");
  EXPECT_EQ(url->path, "/v1");
  auto v6 = parseHttpUrl("http://[::1]:11434/v1");
  ASSERT_TRUE(v6);
  EXPECT_EQ(v6->host, "::1");
  EXPECT_EQ(v6->port, "11434");
  auto bare = parseHttpUrl("http://localhost");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->port, "80");
  EXPECT_EQ(bare->path, "");
  for (const char* bad : {"https://example.com/v1", "ftp://x", "http://:80", "http://h:0",
                          "http://h:99999", "http://h:8a", "127.0.0.1:8080"}) {
    EXPECT_FALSE(parseHttpUrl(bad)) << bad;
  }
}

}  // namespace
}  // namespace klipora
