// FileSystem: every file operation Klipora's logic performs. The real one
// (PosixFileSystem) lives in platform/linux; tests wrap it with the
// fault-injecting wrapper in platform/testing to simulate a full disk, a
// vanished file or a permission error.
//
// Paths are absolute UTF-8 strings. Byte contents travel as std::string.
// Thread rules: implementations are safe to call from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/date.h"
#include "platform/status.h"

namespace klipora {

struct FileAttributes {
  int64_t size = 0;
  bool isDirectory = false;
  bool isRegularFile = false;
  // Birth time where the file system keeps one, else absent.
  std::optional<Date> birthTime;
  Date changeTime;        // inode change time
  Date modificationTime;  // content modification time
};

// What copyStreaming did: how much it copied, or which side failed. A failure
// reading `from` (it is no regular file, it vanished, it may not be read) is
// the source's; a failure creating or writing `to` (a full disk, a read-only
// folder) is the destination's.
struct StreamedCopy {
  int64_t size = 0;
  Status sourceError;
  Status destinationError;
  bool ok() const { return sourceError.ok() && destinationError.ok(); }
};

struct VolumeCapacity {
  int64_t freeBytes = 0;  // available to an unprivileged user
  int64_t totalBytes = 0;
};

class FileSystem {
 public:
  FileSystem() = default;
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;
  virtual ~FileSystem() = default;

  // Reads a whole regular file. NotFound when it does not exist,
  // PermissionDenied when it cannot be opened, InvalidArgument for anything
  // but a regular file (never blocks on a named pipe), IoError otherwise.
  virtual Result<std::string> readFile(const std::string& path) = 0;
  // Copies the regular file `from` into the new file `to` (which must not
  // exist), reading `from` once in chunks of at most kCopyChunkSize bytes and
  // handing each chunk to `eachChunk` before it is written; memory holds one
  // chunk. Only a regular file is read: anything else is refused as
  // InvalidArgument naming what it is, without blocking. `to` is synced; on
  // any failure it is removed. A failing `eachChunk` stops the copy with its
  // error as the source's.
  static constexpr size_t kCopyChunkSize = 1 << 20;
  virtual StreamedCopy copyStreaming(
      const std::string& from, const std::string& to,
      const std::function<Status(std::string_view chunk)>& eachChunk) = 0;
  // Up to `length` bytes from `offset` of a regular file (fewer near its end;
  // a negative offset counts from the end). Never opens anything else, so a
  // named pipe or a device cannot block it: InvalidArgument for those.
  virtual Result<std::string> readFileRange(const std::string& path, int64_t offset,
                                            int64_t length) = 0;
  // The absolute path with every symbolic link resolved. NotFound when some
  // part is missing, InvalidArgument for a link loop.
  virtual Result<std::string> resolvingSymlinks(const std::string& path) = 0;
  // Creates `path` (which must not exist) with `data` and syncs it. On any
  // failure the partly written file is removed before the error is returned.
  virtual Status writeNewFile(const std::string& path, std::string_view data) = 0;
  // Replaces `path` atomically: writes a temporary file beside it, syncs, renames.
  virtual Status writeFileAtomically(const std::string& path, std::string_view data) = 0;
  // Copies `from` to a new file `to` (which must not exist); no partial file on failure.
  virtual Status copyFile(const std::string& from, const std::string& to) = 0;
  virtual Status removeFile(const std::string& path) = 0;
  // Renames within one file system, replacing `to`.
  virtual Status rename(const std::string& from, const std::string& to) = 0;
  // Creates the folder and its missing parents; ok when it already exists.
  virtual Status createDirectories(const std::string& path) = 0;
  virtual Result<FileAttributes> attributes(const std::string& path) = 0;
  virtual bool exists(const std::string& path) = 0;
  // True when `path` is a folder this process may create files in.
  virtual bool isWritableDirectory(const std::string& path) = 0;
  // Names (not paths) of the entries of a folder, unsorted, without "." and "..".
  virtual Result<std::vector<std::string>> listDirectory(const std::string& path) = 0;
  // Removes an extended attribute; ok when the file never had it.
  virtual Status removeExtendedAttribute(const std::string& path, const std::string& name) = 0;
  virtual Result<std::string> extendedAttribute(const std::string& path,
                                                const std::string& name) = 0;
  // Capacity of the volume that holds `path`.
  virtual Result<VolumeCapacity> volumeCapacity(const std::string& path) = 0;
};

// Path helpers (pure string operations).
std::string joinPath(std::string_view base, std::string_view name);
std::string lastPathComponent(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
// Extension after the last '.' of the last component, as written; "" when none.
// A leading dot (".bashrc") is not an extension.
std::string pathExtension(std::string_view path);

}  // namespace klipora
