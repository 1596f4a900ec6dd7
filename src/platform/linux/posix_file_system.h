// PosixFileSystem: FileSystem on Linux system calls (statx for birth times,
// xattr calls, statvfs). Safe from any thread.
#pragma once

#include "platform/file_system.h"

namespace klipora {

class PosixFileSystem final : public FileSystem {
 public:
  Result<std::string> readFile(const std::string& path) override;
  StreamedCopy copyStreaming(
      const std::string& from, const std::string& to,
      const std::function<Status(std::string_view chunk)>& eachChunk) override;
  Result<std::string> readFileRange(const std::string& path, int64_t offset,
                                    int64_t length) override;
  Result<std::string> resolvingSymlinks(const std::string& path) override;
  Status writeNewFile(const std::string& path, std::string_view data) override;
  Status writeFileAtomically(const std::string& path, std::string_view data) override;
  Status copyFile(const std::string& from, const std::string& to) override;
  Status removeFile(const std::string& path) override;
  Status rename(const std::string& from, const std::string& to) override;
  Status createDirectories(const std::string& path) override;
  Result<FileAttributes> attributes(const std::string& path) override;
  bool exists(const std::string& path) override;
  bool isWritableDirectory(const std::string& path) override;
  Result<std::vector<std::string>> listDirectory(const std::string& path) override;
  Status removeExtendedAttribute(const std::string& path, const std::string& name) override;
  Result<std::string> extendedAttribute(const std::string& path, const std::string& name) override;
  Result<VolumeCapacity> volumeCapacity(const std::string& path) override;
};

}  // namespace klipora
