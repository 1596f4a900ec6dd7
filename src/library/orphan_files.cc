#include "library/orphan_files.h"

#include <unordered_set>

#include "library/copies_in_flight.h"
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

// A file's name up to its first dot: the UUID that copies, thumbnails and
// their temporary files share with the name noted for them.
std::string Stem(const std::string& name) { return name.substr(0, name.find('.')); }

}  // namespace

Result<OrphanSweepCounts> sweepOrphanFiles(ModelContext& context, StorageService& storage,
                                           Clock& clock, double minimumAge) {
  ASSIGN_OR_RETURN(auto named, NamedFiles(context));
  ASSIGN_OR_RETURN(auto noted, notedCopies(context.database()));
  std::unordered_set<std::string> notedNames;
  for (const auto& n : noted) notedNames.insert(n.name);
  FileSystem& fs = storage.fileSystem();
  const Date now = clock.now();
  OrphanSweepCounts counts;
  struct Orphan {
    std::string path, stem;
    bool oldEnough;
    bool ours;  // its name was noted by an import that never saved it
  };
  std::vector<Orphan> orphans;
  std::unordered_set<std::string> stemsLeft, namedStems, removedStems;
  for (const std::string& folder : {storage.originalsFolder(), storage.thumbnailsFolder()}) {
    auto names = fs.listDirectory(folder);
    if (!names) continue;  // a missing folder holds no orphans
    for (const auto& name : *names) {
      ++counts.examined;
      std::string stem = Stem(name);
      stemsLeft.insert(stem);
      if (named.count(name)) {
        namedStems.insert(stem);
        continue;
      }
      std::string path = joinPath(folder, name);
      auto attributes = fs.attributes(path);
      if (!attributes || attributes->isDirectory) continue;
      orphans.push_back({path, stem,
                         now.timeIntervalSince(attributes->modificationTime) >= minimumAge,
                         notedNames.count(stem) > 0});
    }
  }
  int strangers = 0;
  for (const auto& orphan : orphans) strangers += orphan.ours ? 0 : 1;
  if (strangers > kForeignFolderFiles && strangers * 2 > counts.examined) {
    log::warning("Cleanup",
                 "orphan sweep skipped: %d of %d files in %s are named by no record; the folder "
                 "may belong to another library",
                 strangers, counts.examined, storage.libraryRoot().c_str());
    counts.refused = true;
  }
  for (const auto& orphan : orphans) {
    if (counts.refused && !orphan.ours) continue;
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
    stemsLeft.erase(orphan.stem);
    removedStems.insert(orphan.stem);
    log::info("Cleanup", "removed orphan %s (named by no record)", orphan.path.c_str());
  }
  if (counts.removed > 0) {
    log::info("Cleanup", "orphan sweep removed %d file(s) of %d", counts.removed,
              counts.examined);
  }
  // A noted name is done with once its file is named or gone; one with no
  // file yet may be about to be used by an import of a running process,
  // unless it was noted long ago.
  std::vector<std::string> settled;
  for (const auto& n : noted) {
    bool unused = !stemsLeft.count(n.name) && now.timeIntervalSince(n.notedAt) >= minimumAge;
    if (unused || removedStems.count(n.name) || namedStems.count(n.name)) {
      settled.push_back(n.name);
    }
  }
  if (Status s = forgetNotedCopies(context.database(), settled); !s.ok()) {
    log::warning("Cleanup", "could not forget the names of finished copies: %s",
                 s.message().c_str());
  }
  return counts;
}

}  // namespace klipora::library
