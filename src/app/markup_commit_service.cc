#include "app/markup_commit_service.h"

#include <algorithm>
#include <cctype>

#include "library/screenshot_item.h"
#include "library/screenshot_item_store.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_sidecar_store.h"
#include "markup/render/markup_export_service.h"
#include "platform/log.h"
#include "platform/sha256.h"

namespace klipora::app {
namespace {

using library::ScreenshotItem;

std::string Lowercased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// `path` with its extension replaced by ".png" (the same path when it is one).
std::string PngPath(const std::string& path) {
  std::string extension = pathExtension(path);
  if (Lowercased(extension) == "png") return path;
  std::string stem = extension.empty() ? path : path.substr(0, path.size() - extension.size() - 1);
  return stem + ".png";
}

std::string EditedName(const std::string& originalFilename) {
  std::string extension = pathExtension(originalFilename);
  std::string stem = extension.empty()
                         ? originalFilename
                         : originalFilename.substr(0, originalFilename.size() - extension.size() - 1);
  return stem + " (edited).png";
}

// Size, dimensions, checksum and thumbnail of `item` from its new file.
void Describe(library::StorageService& storage, ScreenshotItem& item, const std::string& png) {
  item.fileSize = static_cast<int64_t>(png.size());
  item.checksum = sha256Hex(png);
  if (auto properties = storage.codec().properties(png)) {
    if (auto size = storage.imageDimensions(*properties)) {
      item.width = size->first;
      item.height = size->second;
    }
  }
  item.setProcessingState(library::ProcessingState::pending);
  item.processingError.reset();
  if (auto thumbnail = storage.generateThumbnailFromData(png, item.id)) {
    item.thumbnailPath = *thumbnail;
    item.setProcessingState(library::ProcessingState::thumbnailGenerated);
  }
}

}  // namespace

Result<EditsFolderResult> MarkupCommitService::commit(
    const UUID& itemID, const markup::MarkupDocumentSnapshot& snapshot,
    MarkupCommit::Destination destination) {
  auto fetched = context_.fetchByKey<ScreenshotItem>(itemID.uuidString());
  if (!fetched) return Err(Status::IoError("cannot read the library: " + fetched.error().message()));
  std::shared_ptr<ScreenshotItem> item = *fetched;
  if (!item) return Err(Status::NotFound("no item has the id " + itemID.uuidString()));
  if (item->isTrashed()) return Err(Status::NotFound("the item is in the trash"));
  FileSystem& fs = storage_.fileSystem();
  const std::string& root = storage_.libraryRoot();
  // An edit is drawn over the untouched original, wherever it is kept now.
  markup::MarkupNonDestructiveStore originals(fs);
  std::string original = item->libraryPath;
  if (auto reload = originals.validatedReload(root, itemID, item->libraryPath)) {
    original = reload->rawURL;
  }
  auto bytes = fs.readFile(original);
  if (!bytes) {
    return Err(Status(bytes.error().code(), "cannot read " + original + ": " + bytes.error().message()));
  }
  markup::MarkupExportService exporter(storage_.codec(), assets_);
  auto source = exporter.decode(*bytes);
  if (!source) {
    return Err(Status(source.error().code(),
                      original + " is not a readable image: " + source.error().message()));
  }
  auto png = exporter.renderPng(snapshot, *source);
  if (!png) return Err(png.error());
  if (destination == MarkupCommit::Destination::overwriteOriginal) {
    return overwrite(*item, original, snapshot, *png);
  }
  return newSibling(*item, snapshot, *png);
}

Result<EditsFolderResult> MarkupCommitService::overwrite(ScreenshotItem& item,
                                                         const std::string& original,
                                                         const markup::MarkupDocumentSnapshot& snapshot,
                                                         const std::string& png) {
  FileSystem& fs = storage_.fileSystem();
  const std::string& root = storage_.libraryRoot();
  markup::MarkupNonDestructiveStore originals(fs);
  const std::string live = item.libraryPath;
  // A failed stash is logged and does not stop the overwrite.
  if (original == live) originals.stashRawIfNeeded(live, root, item.id);
  const std::string target = PngPath(live);
  if (Status s = fs.writeFileAtomically(target, png); !s.ok()) {
    return Err(Status(s.code(), "cannot write " + target + ": " + s.message()));
  }
  item.libraryPath = target;
  item.importedFilename = lastPathComponent(target);
  Describe(storage_, item, png);
  if (Status s = context_.save(); !s.ok()) {
    if (target != live) (void)fs.removeFile(target);
    return Err(Status(s.code(), "cannot save the library: " + s.message()));
  }
  if (target != live) {
    if (Status s = fs.removeFile(live); !s.ok()) {
      log::warning("Library", "could not remove the replaced file %s: %s", live.c_str(),
                   s.message().c_str());
    }
  }
  originals.writeManifest(snapshot, target, root, item.id);
  return EditsFolderResult{target, item.id};
}

Result<EditsFolderResult> MarkupCommitService::newSibling(
    const ScreenshotItem& source, const markup::MarkupDocumentSnapshot& snapshot,
    const std::string& png) {
  if (library::ScreenshotItemStore(&context_).isDuplicate(sha256Hex(png))) {
    return Err(Status::AlreadyExists("the library already holds this edited image"));
  }
  std::string name = EditedName(source.originalFilename);
  auto copy = storage_.copyToLibrary(name, png);
  if (!copy) return Err(Status(copy.error().code(), "cannot write the edited image: " + copy.error().message()));
  auto item = std::make_shared<ScreenshotItem>();
  item->originalFilename = name;
  item->importedFilename = lastPathComponent(*copy);
  item->sourcePath = source.libraryPath;
  item->libraryPath = *copy;
  item->capturedAt = source.capturedAt;
  item->importedAt = clock_.now();
  item->importSource = library::ImportSourceType::manualImport;
  item->sourceAppBundleID = source.sourceAppBundleID;
  item->sourceAppName = source.sourceAppName;
  item->editedFromID = source.id;
  Describe(storage_, *item, png);
  context_.insert(item);
  if (Status s = context_.save(); !s.ok()) {
    (void)storage_.deleteDerivedFiles(*copy, item->thumbnailPath);
    return Err(Status(s.code(), "cannot save the library: " + s.message()));
  }
  markup::MarkupSidecarStore(storage_.fileSystem()).write(snapshot, storage_.libraryRoot(), item->id);
  return EditsFolderResult{*copy, item->id};
}

}  // namespace klipora::app
