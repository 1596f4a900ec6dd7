// ImportError and SupportedImageTypes: what the import accepts and how it
// says no. The three ImportError cases carry the texts users see; a
// file-system failure (a full disk, a denied folder) carries the system's
// error instead.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::ingestion {

struct SupportedImageTypes {
  // Compared with a file's extension after lower-casing it.
  static constexpr std::array<std::string_view, 14> extensions = {
      "png", "jpg", "jpeg", "jpe", "jfif", "tif", "tiff",
      "heic", "heif", "webp", "avif", "gif", "bmp", "ico"};
  static bool contains(std::string_view lowerCasedExtension);
};

struct ImportError {
  enum class Case { unsupportedFileType, unreadableFile, duplicateScreenshot, fileSystem };

  static ImportError unsupportedFileType(std::string extension) {
    return {Case::unsupportedFileType, std::move(extension), {}};
  }
  static ImportError unreadableFile() { return {Case::unreadableFile, {}, {}}; }
  static ImportError duplicateScreenshot() { return {Case::duplicateScreenshot, {}, {}}; }
  static ImportError fileSystem(Status error) { return {Case::fileSystem, {}, std::move(error)}; }

  // "Unsupported file type: pdf", "Could not read the file.", "This screenshot
  // has already been imported.", or the file system's message.
  std::string errorDescription() const;

  Case kind;
  std::string extension;  // unsupportedFileType only (lower-cased)
  Status underlying;      // fileSystem only
};

using ImportResult = tl::expected<UUID, ImportError>;

}  // namespace klipora::ingestion
