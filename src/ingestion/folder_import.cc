#include "ingestion/folder_import.h"

#include <algorithm>
#include <set>

#include "ingestion/import_pipeline.h"
#include "ingestion/screenshot_evidence.h"

namespace klipora::ingestion {
namespace {

constexpr int kMaxDepth = 32;

bool IsInside(const std::string& path, const std::string& folder) {
  return !folder.empty() &&
         (path == folder || (path.starts_with(folder) && path[folder.size()] == '/'));
}

struct Walk {
  FileSystem& fs;
  const std::string& libraryPath;
  bool recursive;
  FolderImportListing listing;
  std::set<std::string> visited;

  void skip(const std::string& path, std::string reason) {
    listing.skipped.push_back({path, FolderImportOutcome::skipped, std::move(reason), {}});
  }

  void run(const std::string& folder, int depth) {
    if (auto resolved = fs.resolvingSymlinks(folder); resolved) {
      if (!visited.insert(*resolved).second) return;  // a link back up the tree
    }
    auto names = fs.listDirectory(folder);
    if (!names) {
      skip(folder, "cannot list the folder: " + names.error().message());
      return;
    }
    std::sort(names->begin(), names->end());
    for (const std::string& name : *names) {
      const std::string path = joinPath(folder, name);
      if (IsInside(path, libraryPath)) continue;  // the library's own copies
      auto attributes = fs.attributes(path);
      if (attributes && attributes->isDirectory) {
        if (recursive && depth < kMaxDepth && !name.starts_with('.')) run(path, depth + 1);
        continue;
      }
      const std::string extension = lowerCasedExtension(path);
      if (!SupportedImageTypes::contains(extension)) {
        // Only files that look like images are worth a line.
        if (!extension.empty() && !name.starts_with('.')) {
          skip(path, "not an image type this library takes (." + extension + ")");
        }
      } else if (isTemporaryName(name)) {
        skip(path, "a hidden or temporary file");
      } else if (!attributes) {
        skip(path, attributes.error().message());
      } else if (!attributes->isRegularFile) {
        skip(path, "not a regular file");
      } else {
        listing.files.push_back(path);
      }
    }
  }
};

}  // namespace

const char* outcomeName(FolderImportOutcome outcome) {
  switch (outcome) {
    case FolderImportOutcome::imported:
      return "imported";
    case FolderImportOutcome::duplicate:
      return "duplicate";
    case FolderImportOutcome::skipped:
      return "skipped";
    case FolderImportOutcome::failed:
      return "failed";
  }
  return "failed";
}

void FolderImportCounts::add(FolderImportOutcome outcome) {
  switch (outcome) {
    case FolderImportOutcome::imported:
      ++imported;
      break;
    case FolderImportOutcome::duplicate:
      ++duplicate;
      break;
    case FolderImportOutcome::skipped:
      ++skipped;
      break;
    case FolderImportOutcome::failed:
      ++failed;
      break;
  }
}

Result<FolderImportListing> listFolderForImport(FileSystem& fileSystem, const std::string& folder,
                                                const std::string& libraryPath, bool recursive) {
  ASSIGN_OR_RETURN(auto attributes, fileSystem.attributes(folder));
  if (!attributes.isDirectory) return Err(Status::InvalidArgument(folder + " is not a folder"));
  if (auto names = fileSystem.listDirectory(folder); !names) return Err(names.error());
  Walk walk{fileSystem, libraryPath, recursive, {}, {}};
  walk.run(folder, 0);
  return std::move(walk.listing);
}

FolderImportEntry folderImportEntry(const std::string& path, const ImportResult& result) {
  if (result) return {path, FolderImportOutcome::imported, "", *result};
  if (result.error().kind == ImportError::Case::duplicateScreenshot) {
    return {path, FolderImportOutcome::duplicate, result.error().errorDescription(), {}};
  }
  return {path, FolderImportOutcome::failed, result.error().errorDescription(), {}};
}

}  // namespace klipora::ingestion
