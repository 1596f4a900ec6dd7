// TempDir: a fresh folder under $TMPDIR for a test, removed with its contents
// when the object goes away. For tests of real files (integration tests).
#pragma once

#include <string>

namespace klipora::testing {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace klipora::testing
