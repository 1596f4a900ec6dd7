// MarkupNonDestructiveStore: keeps an item that was overwritten in place by
// the editor re-editable. Before the first overwrite the untouched original is
// stashed; after each overwrite a manifest records the edit's snapshot and
// the fingerprint (size, modification time) of the rendered file:
//   Edits/.originals/<UUID>.<original extension>   the raw stash (first one kept)
//   Edits/.originals/<UUID>.json                   the manifest
// Reopening the item (validatedReload) hands back the stash and the snapshot
// only while the live file still carries the rendered fingerprint; otherwise
// the stale stash is cleared. Every operation logs under "nondestructive" and
// carries on; none raises to the editor.
//
// Thread rules: keeps no state; safe from any thread the FileSystem is.
// stashRawIfNeeded and writeManifest belong on a background executor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "markup/markup_document_snapshot.h"
#include "platform/file_system.h"
#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::markup {

struct FileFingerprint {
  int64_t size = 0;
  double modified = 0;  // modification time, seconds since 1970
  bool operator==(const FileFingerprint&) const = default;
};

class MarkupNonDestructiveStore {
 public:
  // The live file still matches when its modification time is within this of
  // the recorded one (and its size is equal).
  static constexpr double kModificationTolerance = 2.0;

  explicit MarkupNonDestructiveStore(FileSystem& fs) : fs_(fs) {}

  static std::string originalsFolder(const std::string& libraryRoot);
  static std::string manifestPath(const std::string& libraryRoot, const UUID& itemID);

  // Copies `originalURL` to the stash unless the item has one already, so the
  // first original survives repeated overwrites. Failures are logged.
  void stashRawIfNeeded(const std::string& originalURL, const std::string& libraryRoot,
                        const UUID& itemID);
  // The stashed original, never the manifest; none when there is no stash.
  std::optional<std::string> existingRawURL(const std::string& libraryRoot, const UUID& itemID);
  // Writes `snapshot` with the fingerprint of `renderedURL` as the manifest;
  // writes nothing when the fingerprint cannot be taken. Failures are logged.
  void writeManifest(const MarkupDocumentSnapshot& snapshot, const std::string& renderedURL,
                     const std::string& libraryRoot, const UUID& itemID);

  struct Reload {
    std::string rawURL;
    MarkupDocumentSnapshot snapshot;
  };
  // What the editor opens for an item whose live file is `liveURL`: the stash
  // and the manifest's snapshot while the live file is the rendered one; none
  // (after clearing what went stale) otherwise. A manifest that is missing or
  // does not decode counts as absent.
  std::optional<Reload> validatedReload(const std::string& libraryRoot, const UUID& itemID,
                                        const std::string& liveURL);
  // Deletes the item's stash and manifest; none there is not an error.
  Status clear(const std::string& libraryRoot, const UUID& itemID);

  // Size and modification time; none when the attributes cannot be read.
  std::optional<FileFingerprint> fingerprint(const std::string& path);

 private:
  void clearLogging(const std::string& libraryRoot, const UUID& itemID);

  FileSystem& fs_;
};

}  // namespace klipora::markup
