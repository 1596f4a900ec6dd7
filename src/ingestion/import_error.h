// ImportError and SupportedImageTypes: what the import accepts and how it
// says no. The three ImportError cases carry the texts users see; a
// file-system failure (a full disk, a denied folder) carries the system's
// error instead. Every error may carry its cause in the user's words, for
// the line under the description ("no permission to read it").
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::ingestion {

struct SupportedImageTypes {
  // Compared with a file's extension after lower-casing it.
  static constexpr std::array<std::string_view, 14> extensions = {
      "png",  "jpg",  "jpeg", "jpe",  "jfif", "tif", "tiff",
      "heic", "heif", "webp", "avif", "gif",  "bmp", "ico"};
  static bool contains(std::string_view lowerCasedExtension);
};

struct ImportError {
  enum class Case { unsupportedFileType, unreadableFile, duplicateScreenshot, fileSystem };

  static ImportError unsupportedFileType(std::string extension);
  // The cause given for a folder where a file was expected.
  static std::string folderCause();
  static ImportError unreadableFile(std::string cause = {}) {
    return {Case::unreadableFile, {}, {}, std::move(cause), std::nullopt};
  }
  static ImportError duplicateScreenshot() {
    return {Case::duplicateScreenshot, {}, {}, {}, std::nullopt};
  }
  static ImportError fileSystem(Status error) {
    std::string cause = userCause(error);
    return {Case::fileSystem, {}, std::move(error), std::move(cause), std::nullopt};
  }
  // A file-system failure after the item was made (removing the original):
  // the import itself stands.
  static ImportError fileSystemAfterImport(Status error, const UUID& itemID) {
    ImportError e = fileSystem(std::move(error));
    e.importedItemID = itemID;
    return e;
  }

  // The cause of a failed file operation in the user's words: "no such
  // file", "no permission to read it", "it is a named pipe, not a file",
  // "the disk is full", …
  static std::string userCause(const Status& status);

  // "Unsupported file type: pdf", "Could not read the file.", "This screenshot
  // has already been imported.", or the file system's message.
  std::string errorDescription() const;

  Case kind;
  std::string extension;               // unsupportedFileType only (lower-cased)
  Status underlying;                   // fileSystem only
  std::string cause;                   // may be empty
  std::optional<UUID> importedItemID;  // the item exists although the import failed late
};

using ImportResult = tl::expected<UUID, ImportError>;

}  // namespace klipora::ingestion
