#include "markup/markup_non_destructive_store.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "markup/markup_sidecar_store.h"
#include "markup/markup_snapshot_json.h"
#include "platform/log.h"
#include "platform/sha256.h"

namespace klipora::markup {
namespace {

constexpr char kLogArea[] = "nondestructive";

// Entries of the originals folder that belong to `itemID`, sorted by name.
std::vector<std::string> EntriesOf(FileSystem& fs, const std::string& folder, const UUID& itemID) {
  auto names = fs.listDirectory(folder);
  if (!names) return {};
  std::string prefix = itemID.uuidString() + ".";
  std::vector<std::string> mine;
  for (const std::string& name : *names) {
    if (name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0) {
      mine.push_back(name);
    }
  }
  std::sort(mine.begin(), mine.end());
  return mine;
}

}  // namespace

std::string MarkupNonDestructiveStore::originalsFolder(const std::string& libraryRoot) {
  return joinPath(joinPath(libraryRoot, kEditsFolderName), ".originals");
}

std::string MarkupNonDestructiveStore::manifestPath(const std::string& libraryRoot,
                                                    const UUID& itemID) {
  return joinPath(originalsFolder(libraryRoot), itemID.uuidString() + ".json");
}

std::optional<std::string> MarkupNonDestructiveStore::existingRawURL(const std::string& libraryRoot,
                                                                     const UUID& itemID) {
  std::string folder = originalsFolder(libraryRoot);
  size_t prefix = itemID.uuidString().size() + 1;
  for (const std::string& name : EntriesOf(fs_, folder, itemID)) {
    // "<UUID>.<ext>" with a plain extension: not the manifest, and not an
    // atomic writer's temporary ("<UUID>.json.tmp-…").
    std::string extension = name.substr(prefix);
    if (extension != "json" && extension.find('.') == std::string::npos) {
      return joinPath(folder, name);
    }
  }
  return std::nullopt;
}

void MarkupNonDestructiveStore::stashRawIfNeeded(const std::string& originalURL,
                                                 const std::string& libraryRoot,
                                                 const UUID& itemID) {
  if (existingRawURL(libraryRoot, itemID)) return;  // the first original is the one to keep
  std::string folder = originalsFolder(libraryRoot);
  std::string extension = pathExtension(originalURL);
  // An extension-less original still needs one, or it could not be found again.
  if (extension.empty() || extension == "json") extension = "original";
  Status s = fs_.createDirectories(folder);
  if (s.ok())
    s = fs_.copyFile(originalURL, joinPath(folder, itemID.uuidString() + "." + extension));
  if (!s.ok()) {
    log::error(kLogArea, "Raw stash failed for id=%s: %s", itemID.uuidString().c_str(),
               s.message().c_str());
  }
}

std::optional<FileFingerprint> MarkupNonDestructiveStore::fingerprint(const std::string& path) {
  auto attributes = fs_.attributes(path);
  if (!attributes || !attributes->isRegularFile) return std::nullopt;
  return FileFingerprint{attributes->size, attributes->modificationTime.timeIntervalSince1970()};
}

void MarkupNonDestructiveStore::writeManifest(const MarkupDocumentSnapshot& snapshot,
                                              const std::string& renderedURL,
                                              const std::string& libraryRoot, const UUID& itemID) {
  auto print = fingerprint(renderedURL);
  if (!print) {
    log::error(kLogArea, "Fingerprint failed for id=%s; skipping manifest write.",
               itemID.uuidString().c_str());
    return;
  }
  MarkupDocumentSnapshot manifest = snapshot;
  manifest.renderedFileSize = print->size;
  manifest.renderedFileModified = print->modified;
  Status s = fs_.createDirectories(originalsFolder(libraryRoot));
  if (s.ok()) s = writeSnapshotFile(fs_, manifestPath(libraryRoot, itemID), manifest);
  if (!s.ok()) {
    log::error(kLogArea, "Manifest write failed for id=%s: %s", itemID.uuidString().c_str(),
               s.message().c_str());
  }
}

std::optional<MarkupNonDestructiveStore::Reload> MarkupNonDestructiveStore::validatedReload(
    const std::string& libraryRoot, const UUID& itemID, const std::string& liveURL) {
  auto rawURL = existingRawURL(libraryRoot, itemID);
  if (!rawURL) return std::nullopt;
  const std::string id = itemID.uuidString();

  auto manifest = readSnapshotFile(fs_, manifestPath(libraryRoot, itemID));
  if (!manifest) {
    if (manifest.error().code() != Status::Code::kNotFound) {
      log::warning(kLogArea, "Manifest unreadable for id=%s: %s", id.c_str(),
                   manifest.error().message().c_str());
    }
    // A stash without a manifest: the overwrite may never have happened.
    // Keep the stash only while it still is the live file's content. When
    // either cannot be read, nothing proves a change: keep the only original.
    auto raw = fs_.readFile(*rawURL);
    auto live = fs_.readFile(liveURL);
    if (!raw || !live) {
      const Status& why = !raw ? raw.error() : live.error();
      log::warning(kLogArea, "Could not compare stash with live file for id=%s: %s; keeping it.",
                   id.c_str(), why.message().c_str());
    } else if (sha256Hex(*raw) != sha256Hex(*live)) {
      log::warning(kLogArea,
                   "Stash without manifest no longer matches live file for id=%s; clearing.",
                   id.c_str());
      clearLogging(libraryRoot, itemID);
    }
    return std::nullopt;
  }

  auto live = fingerprint(liveURL);
  if (!live) {
    // A live file that cannot be examined (an unmounted volume) proves no change.
    log::warning(kLogArea, "Live file unavailable for id=%s; keeping the stash.", id.c_str());
    return std::nullopt;
  }
  bool matches =
      manifest->renderedFileSize && manifest->renderedFileModified &&
      live->size == *manifest->renderedFileSize &&
      std::abs(live->modified - *manifest->renderedFileModified) < kModificationTolerance;
  if (matches) return Reload{*rawURL, std::move(*manifest)};

  log::warning(kLogArea,
               "Live file changed externally (or fingerprint missing) for id=%s; clearing stale "
               "stash.",
               id.c_str());
  clearLogging(libraryRoot, itemID);
  return std::nullopt;
}

Status MarkupNonDestructiveStore::clear(const std::string& libraryRoot, const UUID& itemID) {
  std::string folder = originalsFolder(libraryRoot);
  Status first;
  // Everything named "<UUID>.…": the stash, the manifest, a stray temporary.
  for (const std::string& name : EntriesOf(fs_, folder, itemID)) {
    Status s = fs_.removeFile(joinPath(folder, name));
    if (!s.ok() && s.code() != Status::Code::kNotFound && first.ok()) first = s;
  }
  return first;
}

void MarkupNonDestructiveStore::clearLogging(const std::string& libraryRoot, const UUID& itemID) {
  Status s = clear(libraryRoot, itemID);
  if (!s.ok()) {
    log::error(kLogArea, "Clearing edits failed for id=%s: %s", itemID.uuidString().c_str(),
               s.message().c_str());
  }
}

}  // namespace klipora::markup
