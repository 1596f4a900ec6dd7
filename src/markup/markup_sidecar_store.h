// MarkupSidecarStore: keeps the snapshot of an edit that was saved as a new
// library item, beside it under the library root:
//   Edits/                       created (with parents) when first needed
//   Edits/.sidecar/<UUID>.json   named by the new item's upper-case UUID
// Failures are logged under "sidecar" and never raised to the editor.
//
// Thread rules: keeps no state; safe from any thread the FileSystem is.
#pragma once

#include <optional>
#include <string>

#include "markup/markup_document_snapshot.h"
#include "platform/file_system.h"
#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::markup {

inline constexpr char kEditsFolderName[] = "Edits";

class MarkupSidecarStore {
 public:
  explicit MarkupSidecarStore(FileSystem& fs) : fs_(fs) {}

  // <root>/Edits, created if missing.
  Result<std::string> editsFolder(const std::string& libraryRoot);
  // <root>/Edits/.sidecar, created if missing.
  Result<std::string> sidecarsFolder(const std::string& libraryRoot);
  static std::string sidecarPath(const std::string& libraryRoot, const UUID& itemID);

  // Encodes and writes atomically; on failure logs "Sidecar write failed for
  // id=…: …" and returns.
  void write(const MarkupDocumentSnapshot& snapshot, const std::string& libraryRoot,
             const UUID& newItemID);
  // The sidecar of `itemID`; none when there is none. One that does not
  // decode is logged and counts as none.
  std::optional<MarkupDocumentSnapshot> read(const std::string& libraryRoot, const UUID& itemID);

 private:
  FileSystem& fs_;
};

}  // namespace klipora::markup
