#include "library/orphan_files.h"

#include <unordered_set>

#include "library/screenshot_item.h"
#include "platform/log.h"

namespace klipora::library {
namespace {

// More unnamed files than this, making up most of a folder, mean the folder
// is not this store's.
constexpr int kForeignFolderFiles = 50;

// File names (not paths: a library moved to another folder keeps its names)
// of every copy and thumbnail the records name, saved or about to be.
Result<std::unordered_set<std::string>> NamedFiles(ModelContext& context) {
  std::unordered_set<std::string> names;
  const std::string table = quoteIdentifier(schemaOf<ScreenshotItem>().table);
  ASSIGN_OR_RETURN(auto rows,
                   context.database().query("SELECT libraryPath, thumbnailPath FROM " + table));
  for (const auto& row : rows) {
    for (const auto& value : row) {
      if (auto* text = std::get_if<std::string>(&value)) names.insert(lastPathComponent(*text));
    }
  }
  for (const auto& item : context.pendingInserts<ScreenshotItem>()) {
    names.insert(lastPathComponent(item->libraryPath));
    if (item->thumbnailPath) names.insert(lastPathComponent(*item->thumbnailPath));
  }
  return names;
}

}  // namespace

Result<OrphanSweepCounts> sweepOrphanFiles(ModelContext& context, StorageService& storage,
                                           Clock& clock, double minimumAge) {
  ASSIGN_OR_RETURN(auto named, NamedFiles(context));
  FileSystem& fs = storage.fileSystem();
  const Date now = clock.now();
  OrphanSweepCounts counts;
  struct Orphan {
    std::string path;
    bool oldEnough;
  };
  std::vector<Orphan> orphans;
  for (const std::string& folder : {storage.originalsFolder(), storage.thumbnailsFolder()}) {
    auto names = fs.listDirectory(folder);
    if (!names) continue;  // a missing folder holds no orphans
    for (const auto& name : *names) {
      ++counts.examined;
      if (named.count(name)) continue;
      std::string path = joinPath(folder, name);
      auto attributes = fs.attributes(path);
      if (!attributes || attributes->isDirectory) continue;
      orphans.push_back(
          {path, now.timeIntervalSince(attributes->modificationTime) >= minimumAge});
    }
  }
  const int unnamed = static_cast<int>(orphans.size());
  if (unnamed > kForeignFolderFiles && unnamed * 2 > counts.examined) {
    log::warning("Cleanup",
                 "orphan sweep skipped: %d of %d files in %s are named by no record; the folder "
                 "may belong to another library",
                 unnamed, counts.examined, storage.libraryRoot().c_str());
    counts.refused = true;
    return counts;
  }
  for (const auto& orphan : orphans) {
    if (!orphan.oldEnough) {
      ++counts.tooRecent;
      continue;
    }
    if (Status s = fs.removeFile(orphan.path); !s.ok()) {
      log::warning("Cleanup", "could not remove orphan %s: %s", orphan.path.c_str(),
                   s.message().c_str());
      continue;
    }
    ++counts.removed;
    log::info("Cleanup", "removed orphan %s (named by no record)", orphan.path.c_str());
  }
  if (counts.removed > 0) {
    log::info("Cleanup", "orphan sweep removed %d file(s) of %d", counts.removed,
              counts.examined);
  }
  return counts;
}

}  // namespace klipora::library
