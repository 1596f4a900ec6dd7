// Folder import: what a bulk import of a whole folder (and its subfolders)
// takes in and how each file ends. Listing the folder decides which files
// are tried (accepted image extensions, regular files, not temporaries, not
// inside the library) and which are skipped, with the reason; each file
// tried ends imported, duplicate (already in the library) or failed, with
// the import's reason. Originals are never deleted.
//
// Thread rules: pure functions over a FileSystem; any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ingestion/import_error.h"
#include "platform/file_system.h"

namespace klipora::ingestion {

enum class FolderImportOutcome { imported, duplicate, skipped, failed };
const char* outcomeName(FolderImportOutcome outcome);

struct FolderImportEntry {
  std::string path;
  FolderImportOutcome outcome = FolderImportOutcome::skipped;
  std::string reason;  // empty when imported
  std::optional<UUID> id;
};

struct FolderImportCounts {
  int imported = 0, duplicate = 0, skipped = 0, failed = 0;
  void add(FolderImportOutcome outcome);
  int total() const { return imported + duplicate + skipped + failed; }
};

struct FolderImportListing {
  std::vector<std::string> files;          // to import, in a stable order
  std::vector<FolderImportEntry> skipped;  // with their reasons
};

// NotFound / PermissionDenied / InvalidArgument (not a folder) for the
// folder itself; a subfolder that cannot be listed is one skipped entry.
Result<FolderImportListing> listFolderForImport(FileSystem& fileSystem, const std::string& folder,
                                                const std::string& libraryPath, bool recursive);

// The entry of a file tried: imported, duplicate or failed.
FolderImportEntry folderImportEntry(const std::string& path, const ImportResult& result);

}  // namespace klipora::ingestion
