#include "library/storage_service.h"

#include "platform/localization.h"
#include "platform/log.h"

namespace klipora::library {

std::string errorDescription(StorageError error) {
  switch (error) {
    case StorageError::unreadableImage: return tr("Could not read the image file.");
    case StorageError::thumbnailGenerationFailed: return tr("Failed to generate thumbnail.");
  }
  return {};
}

StorageService::StorageService(FileSystem& fs, ImageCodec& codec, std::string libraryRoot)
    : fs_(fs), codec_(codec), root_(std::move(libraryRoot)) {}

std::string StorageService::thumbnailPath(const UUID& itemID) const {
  return joinPath(thumbnailsFolder(), itemID.uuidString() + ".jpg");
}

Status StorageService::createLibraryStructure() {
  for (const auto& folder :
       {originalsFolder(), thumbnailsFolder(), cacheFolder(), diagnosticsFolder()}) {
    RETURN_IF_ERROR(fs_.createDirectories(folder));
  }
  return Status::Ok();
}

std::string StorageService::newLibraryCopyPath(const std::string& source) const {
  return libraryCopyPath(UUID::Random(), source);
}

std::string StorageService::libraryCopyPath(const UUID& uuid, const std::string& source) const {
  std::string extension = pathExtension(source);
  std::string name = uuid.uuidString();
  if (!extension.empty()) name += "." + extension;
  return joinPath(originalsFolder(), name);
}

Result<std::string> StorageService::copyToLibrary(const std::string& source,
                                                  std::string_view bytes) {
  std::string destination = newLibraryCopyPath(source);
  RETURN_IF_ERROR(fs_.writeNewFile(destination, bytes));
  // A fresh file carries no attributes today; removing the mark anyway keeps
  // the rule true if the copy is ever made by a call that preserves them.
  (void)fs_.removeExtendedAttribute(destination, kScreenCaptureAttribute);
  return destination;
}

Result<std::string> StorageService::copyToLibrary(const std::string& source) {
  ASSIGN_OR_RETURN(std::string bytes, fs_.readFile(source));
  return copyToLibrary(source, bytes);
}

Result<std::string> StorageService::checkedThumbnail(
    const Result<ImageProperties>& properties, const std::function<Result<std::string>()>& encode,
    const UUID& itemID) {
  if (!properties) {
    return Err(Status::InvalidArgument(errorDescription(StorageError::unreadableImage)));
  }
  int64_t pixels = static_cast<int64_t>(properties->width) * properties->height;
  if (pixels > kMaxThumbnailPixels) {
    log::warning("Thumb", "%dx%d image is too large to thumbnail", properties->width,
                 properties->height);
    return Err(Status::InvalidArgument(errorDescription(StorageError::thumbnailGenerationFailed)));
  }
  auto jpeg = encode();
  if (!jpeg) {
    log::warning("Thumb", "thumbnail for %s failed: %s", itemID.uuidString().c_str(),
                 jpeg.error().message().c_str());
    return Err(Status::Corruption(errorDescription(StorageError::thumbnailGenerationFailed)));
  }
  std::string path = thumbnailPath(itemID);
  if (Status s = fs_.writeFileAtomically(path, *jpeg); !s.ok()) {
    log::warning("Thumb", "writing %s failed: %s", path.c_str(), s.message().c_str());
    return Err(Status(s.code(), errorDescription(StorageError::thumbnailGenerationFailed)));
  }
  return path;
}

Result<std::string> StorageService::generateThumbnailFromData(std::string_view bytes,
                                                              const UUID& itemID) {
  return checkedThumbnail(
      codec_.properties(bytes),
      [&] { return codec_.makeJpegThumbnail(bytes, kThumbnailMaxPixelSize, kThumbnailQuality); },
      itemID);
}

Result<std::string> StorageService::generateThumbnail(const std::string& imagePath,
                                                      const UUID& itemID) {
  return checkedThumbnail(
      codec_.propertiesOfFile(imagePath),
      [&] {
        return codec_.makeJpegThumbnailOfFile(imagePath, kThumbnailMaxPixelSize,
                                              kThumbnailQuality);
      },
      itemID);
}

std::optional<Date> StorageService::fileCreationDate(
    const std::string& path, const std::optional<ImageProperties>& properties) {
  if (properties) {
    for (const auto* field : {&properties->exifDateTimeOriginal,
                              &properties->exifDateTimeDigitized, &properties->tiffDateTime}) {
      if (*field) {
        if (auto date = parseExifDate(**field)) return date;
      }
    }
  }
  auto attributes = fs_.attributes(path);
  if (!attributes) return std::nullopt;
  // Linux keeps birth times on most file systems; where it does not, the inode
  // change time is the closest fact (the modification time survives a move).
  return attributes->birthTime.value_or(attributes->changeTime);
}

std::optional<int64_t> StorageService::fileSize(const std::string& path) {
  auto attributes = fs_.attributes(path);
  if (!attributes) return std::nullopt;
  return attributes->size;
}

std::optional<std::pair<int, int>> StorageService::imageDimensions(
    const ImageProperties& properties) const {
  if (properties.width <= 0 || properties.height <= 0) return std::nullopt;
  if (properties.orientation >= 5) return std::make_pair(properties.height, properties.width);
  return std::make_pair(properties.width, properties.height);
}

Status StorageService::deleteDerivedFiles(const std::string& libraryPath,
                                          const std::optional<std::string>& thumbnailPath) {
  Status first;
  auto remove = [&](const std::string& path) {
    Status s = fs_.removeFile(path);
    if (!s.ok() && s.code() != Status::Code::kNotFound && first.ok()) first = s;
  };
  remove(libraryPath);
  if (thumbnailPath) remove(*thumbnailPath);
  return first;
}

}  // namespace klipora::library
