#include "ingestion/import_error.h"

#include "platform/localization.h"

namespace klipora::ingestion {

bool SupportedImageTypes::contains(std::string_view lowerCasedExtension) {
  for (auto e : extensions) {
    if (e == lowerCasedExtension) return true;
  }
  return false;
}

ImportError ImportError::unsupportedFileType(std::string extension) {
  std::string cause =
      extension.empty()
          ? tr("the name has no extension; Klipora takes .png, .jpg, .jpeg, .jpe, .jfif, .tif, "
               ".tiff, .heic, .heif, .webp, .avif, .gif, .bmp and .ico files")
          : tr("Klipora takes .png, .jpg, .jpeg, .jpe, .jfif, .tif, .tiff, .heic, .heif, .webp, "
               ".avif, .gif, .bmp and .ico files");
  return {Case::unsupportedFileType, std::move(extension), {}, std::move(cause), std::nullopt};
}

std::string ImportError::userCause(const Status& status) {
  const std::string& message = status.message();
  // File-system messages end in ": <what happened>"; a path may hold ": " too,
  // so the last one counts.
  size_t colon = message.rfind(": ");
  std::string tail = colon == std::string::npos ? message : message.substr(colon + 2);
  switch (status.code()) {
    case Status::Code::kNotFound:
      if (tail.starts_with("a link")) return "it is " + tail;
      return tr("no such file; it may have been moved or deleted");
    case Status::Code::kPermissionDenied:
      return tr("no permission");
    case Status::Code::kNoSpace:
      return tr("the disk is full");
    default:
      return tail == "it is a folder" ? folderCause() : tail;
  }
}

std::string ImportError::folderCause() {
  return tr("it is a folder; klipora import --folder imports the screenshots in it");
}

std::string ImportError::errorDescription() const {
  switch (kind) {
    case Case::unsupportedFileType:
      return std::string(tr("Unsupported file type: ")) + extension;
    case Case::unreadableFile:
      return tr("Could not read the file.");
    case Case::duplicateScreenshot:
      return tr("This screenshot has already been imported.");
    case Case::fileSystem:
      return underlying.message();
  }
  return {};
}

}  // namespace klipora::ingestion
