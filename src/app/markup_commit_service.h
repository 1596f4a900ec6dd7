// MarkupCommitService: committing a markup edit to a library item, in one of
// two ways (MarkupCommit::Destination):
//   overwriteOriginal  the untouched original is stashed (once: the first
//                      original survives repeated overwrites), the edit is
//                      rendered over it and written as PNG in place of the
//                      item's file (a file that was not PNG takes the .png
//                      extension), and the manifest records the snapshot with
//                      the rendered file's fingerprint, so the edit reopens
//                      with every layer. The item's size, dimensions,
//                      checksum and thumbnail follow the new pixels and it
//                      goes back to pending, so its text and category are
//                      read again.
//   newSibling         the rendered PNG becomes a new library item whose
//                      editedFromID names the source item; the snapshot is
//                      written as its sidecar.
// An edit is always rendered over the original: the stash when an earlier
// overwrite left one, else the item's file.
//
// Thread rules: main thread (it uses the main context); the render runs on
// it too, which for a screenshot is well under a second.
#pragma once

#include <optional>
#include <string>

#include "library/model_context.h"
#include "library/screenshot_item.h"
#include "library/storage_service.h"
#include "markup/markup_assets.h"
#include "markup/markup_document_snapshot.h"
#include "platform/clock.h"
#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::app {

struct MarkupCommit {
  enum class Destination { overwriteOriginal, newSibling };
};

struct EditsFolderResult {
  std::string url;   // the written file
  UUID newItemID;    // the item that holds it (the edited item for an overwrite)
};

class MarkupCommitService {
 public:
  MarkupCommitService(library::ModelContext& context, library::StorageService& storage,
                      Clock& clock, markup::MarkupAssetSource* assets = nullptr)
      : context_(context), storage_(storage), clock_(clock), assets_(assets) {}

  // NotFound for an unknown or trashed item; the source's decode error; an
  // error beginning "renderFailed" when the render fails; the file system's
  // error when the result cannot be written (the item is then unchanged).
  Result<EditsFolderResult> commit(const UUID& itemID,
                                   const markup::MarkupDocumentSnapshot& snapshot,
                                   MarkupCommit::Destination destination);

 private:
  Result<EditsFolderResult> overwrite(library::ScreenshotItem& item, const std::string& original,
                                      const markup::MarkupDocumentSnapshot& snapshot,
                                      const std::string& png);
  Result<EditsFolderResult> newSibling(const library::ScreenshotItem& item,
                                       const markup::MarkupDocumentSnapshot& snapshot,
                                       const std::string& png);

  library::ModelContext& context_;
  library::StorageService& storage_;
  Clock& clock_;
  markup::MarkupAssetSource* assets_;
};

}  // namespace klipora::app
