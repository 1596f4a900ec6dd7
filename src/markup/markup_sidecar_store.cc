#include "markup/markup_sidecar_store.h"

#include "markup/markup_snapshot_json.h"
#include "platform/log.h"

namespace klipora::markup {
namespace {

constexpr char kLogArea[] = "sidecar";

}  // namespace

Result<std::string> MarkupSidecarStore::editsFolder(const std::string& libraryRoot) {
  std::string folder = joinPath(libraryRoot, kEditsFolderName);
  RETURN_IF_ERROR(fs_.createDirectories(folder));
  return folder;
}

Result<std::string> MarkupSidecarStore::sidecarsFolder(const std::string& libraryRoot) {
  ASSIGN_OR_RETURN(std::string edits, editsFolder(libraryRoot));
  std::string folder = joinPath(edits, ".sidecar");
  RETURN_IF_ERROR(fs_.createDirectories(folder));
  return folder;
}

std::string MarkupSidecarStore::sidecarPath(const std::string& libraryRoot, const UUID& itemID) {
  return joinPath(joinPath(joinPath(libraryRoot, kEditsFolderName), ".sidecar"),
                  itemID.uuidString() + ".json");
}

void MarkupSidecarStore::write(const MarkupDocumentSnapshot& snapshot,
                               const std::string& libraryRoot, const UUID& newItemID) {
  auto folder = sidecarsFolder(libraryRoot);
  Status s = folder ? writeSnapshotFile(fs_, sidecarPath(libraryRoot, newItemID), snapshot)
                    : folder.error();
  if (!s.ok()) {
    log::error(kLogArea, "Sidecar write failed for id=%s: %s", newItemID.uuidString().c_str(),
               s.message().c_str());
  }
}

std::optional<MarkupDocumentSnapshot> MarkupSidecarStore::read(const std::string& libraryRoot,
                                                               const UUID& itemID) {
  auto snapshot = readSnapshotFile(fs_, sidecarPath(libraryRoot, itemID));
  if (snapshot) return std::move(*snapshot);
  if (snapshot.error().code() != Status::Code::kNotFound) {
    log::warning(kLogArea, "Sidecar unreadable for id=%s: %s", itemID.uuidString().c_str(),
                 snapshot.error().message().c_str());
  }
  return std::nullopt;
}

}  // namespace klipora::markup
