// StorageService: the files of one library root. The root holds "Originals"
// (library copies named <UUID>.<ext>), "Thumbnails" (<item id>.jpg, longest
// side 300 px, JPEG quality 80, orientation applied), "Cache" and
// "Diagnostics". It also reads the facts of an image: pixel size, capture
// date, file size.
//
// Thread rules: safe from any thread; it keeps no mutable state.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/file_system.h"
#include "platform/image_codec.h"
#include "platform/uuid.h"

namespace klipora::library {

// The extended attribute that marks a file as a screen capture; the library
// copy never carries it, so the watcher never mistakes a copy for a new shot.
inline constexpr char kScreenCaptureAttribute[] = "user.klipora.screen-capture";

enum class StorageError { unreadableImage, thumbnailGenerationFailed };
std::string errorDescription(StorageError error);

class StorageService {
 public:
  static constexpr int kThumbnailMaxPixelSize = 300;
  static constexpr int kThumbnailQuality = 80;
  // Images with more pixels than this get no thumbnail: decoding them could
  // take gigabytes and minutes.
  static constexpr int64_t kMaxThumbnailPixels = ImageCodec::kMaxThumbnailSourcePixels;

  StorageService(FileSystem& fs, ImageCodec& codec, std::string libraryRoot);

  const std::string& libraryRoot() const { return root_; }
  std::string originalsFolder() const { return joinPath(root_, "Originals"); }
  std::string thumbnailsFolder() const { return joinPath(root_, "Thumbnails"); }
  std::string cacheFolder() const { return joinPath(root_, "Cache"); }
  std::string diagnosticsFolder() const { return joinPath(root_, "Diagnostics"); }
  std::string thumbnailPath(const UUID& itemID) const;

  // Creates the four subfolders (and the root); ok when they exist.
  Status createLibraryStructure();

  // A new path in "Originals" for a copy of `source`: an upper-case UUID name
  // keeping the source's extension (the bare UUID when it has none).
  std::string newLibraryCopyPath(const std::string& source) const;
  // The same under a name chosen beforehand.
  std::string libraryCopyPath(const UUID& name, const std::string& source) const;
  // Writes `bytes` (the content of `source`) into "Originals" under a new
  // upper-case UUID name keeping the source's extension, and returns the new
  // path. Fails with the file system's error and leaves no partial file.
  Result<std::string> copyToLibrary(const std::string& source, std::string_view bytes);
  // Reads `source` and copies it as above.
  Result<std::string> copyToLibrary(const std::string& source);

  // Writes the thumbnail of the image file at `imagePath` for `itemID` and
  // returns its path, decoding from the file (memory holds no more than the
  // decoder's working lines). Fails with unreadableImage or
  // thumbnailGenerationFailed.
  Result<std::string> generateThumbnail(const std::string& imagePath, const UUID& itemID);
  // The same from the encoded image bytes already in memory.
  Result<std::string> generateThumbnailFromData(std::string_view bytes, const UUID& itemID);

  // Capture date: EXIF DateTimeOriginal, then DateTimeDigitized, then the TIFF
  // DateTime ("yyyy:MM:dd HH:mm:ss", local time); else the file's birth time,
  // else its inode change time. Absent when the file cannot be examined.
  std::optional<Date> fileCreationDate(const std::string& path,
                                       const std::optional<ImageProperties>& properties);
  std::optional<int64_t> fileSize(const std::string& path);
  // Pixel size as shown: width and height swap for the rotated EXIF
  // orientations 5 to 8. Absent when the bytes are not a readable image.
  std::optional<std::pair<int, int>> imageDimensions(const ImageProperties& properties) const;

  // Removes the library copy and, when given, the thumbnail. A file already
  // gone is not an error; any other failure is returned after trying both.
  Status deleteDerivedFiles(const std::string& libraryPath,
                            const std::optional<std::string>& thumbnailPath);

  FileSystem& fileSystem() { return fs_; }
  ImageCodec& codec() { return codec_; }

 private:
  Result<std::string> checkedThumbnail(const Result<ImageProperties>& properties,
                                       const std::function<Result<std::string>()>& encode,
                                       const UUID& itemID);

  FileSystem& fs_;
  ImageCodec& codec_;
  std::string root_;
};

}  // namespace klipora::library
