// MemoryFileSystem: an in-memory FileSystem for unit tests. It keeps public
// records of what was written and removed so tests can assert on them.
// FaultInjectingFileSystem wraps any FileSystem, forwards every call, and
// fails the calls a test picks (a full disk, a vanished file, a denied folder).
// Thread-safe (one lock).
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/file_system.h"

namespace klipora::testing {

class MemoryFileSystem final : public FileSystem {
 public:
  MemoryFileSystem();

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

  // Test set-up helpers.
  void addFile(const std::string& path, std::string data, Date birth = {});
  void setExtendedAttribute(const std::string& path, const std::string& name, std::string value);
  void setReadOnlyDirectory(const std::string& path, bool readOnly);
  // Removes a folder with everything in it.
  void removeTree(const std::string& path);
  void setCapacity(VolumeCapacity capacity) { capacity_ = capacity; }
  std::vector<std::string> filesUnder(const std::string& folder) const;

  // Records of what happened, in order.
  std::vector<std::string> written;
  std::vector<std::string> removed;

 private:
  struct File {
    std::string data;
    Date birth;
    Date modified;
    std::map<std::string, std::string> xattrs;
  };
  Status checkParentWritable(const std::string& path) const;

  mutable std::recursive_mutex mutex_;
  std::map<std::string, File> files_;
  std::set<std::string> directories_;
  std::set<std::string> readOnly_;
  VolumeCapacity capacity_{50LL << 30, 500LL << 30};
};

class FaultInjectingFileSystem final : public FileSystem {
 public:
  // Which call a fault applies to.
  enum class Op {
    kRead,
    kWriteNew,
    kWriteAtomically,
    kCopy,
    kRemove,
    kRename,
    kCreateDirectories,
    kAttributes,
    kRemoveXattr,
    kCapacity
  };

  explicit FaultInjectingFileSystem(FileSystem& base) : base_(base) {}

  // Makes every call of `op` whose path contains `pathFragment` fail with `status`.
  void failWhen(Op op, std::string pathFragment, Status status);
  // Runs `hook` before each forwarded call of `op` (e.g. to delete the file mid-import).
  void beforeCall(Op op, std::function<void(const std::string& path)> hook);
  void clearFaults();

  Result<std::string> readFile(const std::string& path) override;
  // Faults: kRead on `from`, kWriteNew on `to`.
  StreamedCopy copyStreaming(
      const std::string& from, const std::string& to,
      const std::function<Status(std::string_view chunk)>& eachChunk) override;
  Result<std::string> readFileRange(const std::string& path, int64_t offset,
                                    int64_t length) override {
    RETURN_IF_ERROR(check(Op::kRead, path));
    return base_.readFileRange(path, offset, length);
  }
  Result<std::string> resolvingSymlinks(const std::string& path) override {
    return base_.resolvingSymlinks(path);
  }
  Status writeNewFile(const std::string& path, std::string_view data) override;
  Status writeFileAtomically(const std::string& path, std::string_view data) override;
  Status copyFile(const std::string& from, const std::string& to) override;
  Status removeFile(const std::string& path) override;
  Status rename(const std::string& from, const std::string& to) override;
  Status createDirectories(const std::string& path) override;
  Result<FileAttributes> attributes(const std::string& path) override;
  bool exists(const std::string& path) override { return base_.exists(path); }
  bool isWritableDirectory(const std::string& path) override {
    return base_.isWritableDirectory(path);
  }
  Result<std::vector<std::string>> listDirectory(const std::string& path) override {
    return base_.listDirectory(path);
  }
  Status removeExtendedAttribute(const std::string& path, const std::string& name) override;
  Result<std::string> extendedAttribute(const std::string& path, const std::string& name) override {
    return base_.extendedAttribute(path, name);
  }
  Result<VolumeCapacity> volumeCapacity(const std::string& path) override;

 private:
  Status check(Op op, const std::string& path);

  struct Fault {
    Op op;
    std::string fragment;
    Status status;
  };
  FileSystem& base_;
  std::mutex mutex_;
  std::vector<Fault> faults_;
  std::map<Op, std::function<void(const std::string&)>> hooks_;
};

}  // namespace klipora::testing
