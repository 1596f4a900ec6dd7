#include "ingestion/ingestion_watcher.h"

#include <algorithm>

#include "ingestion/import_error.h"
#include "ingestion/import_pipeline.h"
#include "ingestion/screenshot_evidence.h"
#include "platform/log.h"

namespace klipora::ingestion {
namespace {

constexpr char kArea[] = "Watcher";
// Enough of a PNG to reach its text chunks, which come before the pixels.
constexpr int64_t kHeadBytes = 64 * 1024;
constexpr int64_t kTailBytes = 64;

bool IsUnder(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

}  // namespace

bool BoundedPathSet::insert(const std::string& path) {
  if (!paths_.insert(path).second) return false;
  order_.push_back(path);
  while (paths_.size() > capacity_ && !order_.empty()) {
    paths_.erase(order_.front());
    order_.pop_front();
  }
  // Erased paths stay in the order list until they reach its front; keep it
  // from growing without bound when paths come and go.
  if (order_.size() > 2 * capacity_) {
    std::erase_if(order_, [this](const std::string& p) { return !paths_.count(p); });
  }
  return true;
}

void BoundedPathSet::erase(const std::string& path) { paths_.erase(path); }

void BoundedPathSet::clear() {
  paths_.clear();
  order_.clear();
}

IngestionWatcher::IngestionWatcher(Deps deps, std::string libraryPath)
    : deps_(deps), libraryPath_(std::move(libraryPath)) {
  deps_.folderWatch.setHandler([this](const FolderWatchEvent& event) { handle(event); });
}

IngestionWatcher::~IngestionWatcher() {
  stopAll();
  deps_.folderWatch.setHandler(nullptr);
}

void IngestionWatcher::reloadFolders(std::vector<WatchedFolderSnapshot> folders) {
  if (!folders.empty() && folders == folders_) return;  // what runs is what is asked for
  stopAll();
  folders_ = std::move(folders);
  for (const auto& folder : folders_) {
    if (deps_.fileSystem.attributes(folder.path).value_or(FileAttributes{}).isDirectory) {
      watchTree(folder.path, folder.includeSubfolders);
    } else {
      await(folder.path);
    }
  }
  log::info(kArea, "watching %zu folder(s), %zu awaited", watchedFolders().size(), awaited_.size());
}

void IngestionWatcher::stopAll() {
  for (const auto& [path, id] : watches_) deps_.folderWatch.remove(id);
  watches_.clear();
  awaited_.clear();
  for (auto& [path, candidate] : candidates_) {
    if (candidate.timer) deps_.timers.cancel(*candidate.timer);
  }
  candidates_.clear();
  known_.clear();
  folders_.clear();
}

std::vector<std::string> IngestionWatcher::watchedFolders() const {
  std::vector<std::string> out;
  for (const auto& [path, id] : watches_) {
    if (ownerOf(joinPath(path, "x"))) out.push_back(path);
  }
  return out;
}

std::vector<std::string> IngestionWatcher::awaitedFolders() const {
  return {awaited_.begin(), awaited_.end()};
}

void IngestionWatcher::handle(const FolderWatchEvent& event) {
  using Kind = FolderWatchEvent::Kind;
  switch (event.kind) {
    case Kind::overflow:
      log::warning(kArea, "file events were lost; looking through every folder again");
      for (const auto& folder : folders_) {
        scanForFreshFiles(folder.path, folder.includeSubfolders);
      }
      return;
    case Kind::folderGone:
      folderGone(event.path);
      return;
    case Kind::deleted:
    case Kind::movedOut:
      if (!event.isDirectory) forget(event.path);
      return;
    case Kind::created:
    case Kind::movedIn:
      if (event.isDirectory) {
        folderAppeared(event.path);
        return;
      }
      consider(event.path, event.kind == Kind::movedIn, "fsevents");
      return;
    case Kind::modified:
    case Kind::closedWrite:
      if (!event.isDirectory) consider(event.path, event.kind == Kind::closedWrite, "fsevents");
      return;
  }
}

void IngestionWatcher::consider(const std::string& path, bool probablyComplete,
                                const char* detection) {
  const std::string name = lastPathComponent(path);
  if (!SupportedImageTypes::contains(lowerCasedExtension(path)) || isTemporaryName(name) ||
      underLibrary(path)) {
    return;
  }
  const WatchedFolderSnapshot* folder = ownerOf(path);
  if (!folder) return;
  auto resolved = deps_.fileSystem.resolvingSymlinks(path);
  if (!resolved) {
    // Gone already, or a link that leads nowhere: nothing to import.
    log::info(kArea, "skip %s: %s", name.c_str(), resolved.error().message().c_str());
    return;
  }
  if (handedOff_.contains(*resolved)) return;
  auto it = candidates_.find(*resolved);
  if (it == candidates_.end()) {
    if (!known_.insert(*resolved)) return;
    Candidate candidate;
    candidate.path = path;
    candidate.folder = folder;
    candidate.detection = detection;
    candidate.closed = probablyComplete;
    candidate.firstSeen = deps_.clock.monotonicSeconds();
    if (activeApplication_) candidate.application = activeApplication_->current();
    candidates_.emplace(*resolved, std::move(candidate));
    log::info(kArea, "detected %s (%s)", name.c_str(), detection);
    schedule(*resolved, probablyComplete ? kProbablyCompleteDelay : kMaybeCompleteDelay);
  } else if (probablyComplete) {
    it->second.closed = true;
    schedule(*resolved, kProbablyCompleteDelay);
  }
}

void IngestionWatcher::schedule(const std::string& resolved, double delay) {
  auto& candidate = candidates_.at(resolved);
  if (candidate.timer) deps_.timers.cancel(*candidate.timer);
  candidate.timer = deps_.timers.scheduleOnce(delay, [this, resolved] {
    if (auto it = candidates_.find(resolved); it != candidates_.end()) {
      it->second.timer.reset();
      check(resolved);
    }
  });
}

void IngestionWatcher::check(const std::string& resolved) {
  Candidate& candidate = candidates_.at(resolved);
  const std::string name = lastPathComponent(candidate.path);
  auto attributes = deps_.fileSystem.attributes(resolved);
  if (!attributes) {
    log::info(kArea, "skip %s: it went away (%s)", name.c_str(),
              attributes.error().message().c_str());
    forget(resolved);
    return;
  }
  if (!attributes->isRegularFile) {
    log::warning(kArea, "skip %s: not a regular file (a folder, pipe, socket or device)",
                 candidate.path.c_str());
    forget(resolved);
    return;
  }
  if (!candidate.checked) {
    candidate.checked = true;
    const Date born = attributes->birthTime.value_or(attributes->changeTime);
    const double age = deps_.clock.now().timeIntervalSince(born);
    if (age > kNewFileAge) {
      log::info(kArea, "skip %s: created %.0fs ago, not a new screenshot", name.c_str(), age);
      forget(resolved);
      return;
    }
  }

  Completeness completeness = Completeness::incomplete;
  std::string head;
  if (attributes->size > 0) {
    auto readHead = deps_.fileSystem.readFileRange(resolved, 0, kHeadBytes);
    auto readTail = deps_.fileSystem.readFileRange(resolved, -kTailBytes, kTailBytes);
    if (readHead && readTail) {
      head = std::move(*readHead);
      completeness = completenessOf(head, *readTail);
      const bool markerMayMislead = completeness == Completeness::complete &&
                                    !candidate.closed && !endMarkerIsConclusive(head);
      if (completeness == Completeness::undecided || markerMayMislead) {
        completeness = attributes->size == candidate.lastSize ? Completeness::complete
                                                              : Completeness::incomplete;
      }
    }
  }
  candidate.lastSize = attributes->size;
  if (completeness != Completeness::complete) {
    if (deps_.clock.monotonicSeconds() - candidate.firstSeen > kGiveUpAfter) {
      log::warning(kArea, "skip %s: still incomplete after %.0fs", candidate.path.c_str(),
                   kGiveUpAfter);
      forget(resolved);
      return;
    }
    schedule(resolved, kRecheckDelay);
    return;
  }
  if (candidate.folder->isDefault && !showsScreenshotTool(resolved, head)) {
    log::info(kArea, "skip %s: no sign of a screenshot tool (name, PNG text or %s)", name.c_str(),
              kScreenCaptureAttribute);
    forget(resolved);
    return;
  }
  handOff(resolved, candidate);
}

bool IngestionWatcher::showsScreenshotTool(const std::string& path, std::string_view head) {
  return looksLikeScreenshotName(lastPathComponent(path)) || pngNamesScreenshotTool(head) ||
         deps_.fileSystem.extendedAttribute(path, kScreenCaptureAttribute).has_value();
}

void IngestionWatcher::handOff(const std::string& resolved, const Candidate& candidate) {
  const std::string detection = candidate.detection;
  const auto application = candidate.application;
  forget(resolved);
  if (!handedOff_.insert(resolved)) return;
  log::info(kArea, "handoff %s (%s)", lastPathComponent(resolved).c_str(), detection.c_str());
  if (!onNewFile) return;
  if (application) {
    onNewFile(resolved, application->id, application->name);
  } else {
    onNewFile(resolved, std::nullopt, std::nullopt);
  }
}

void IngestionWatcher::forget(const std::string& resolved) {
  auto it = candidates_.find(resolved);
  if (it == candidates_.end()) return;
  if (it->second.timer) deps_.timers.cancel(*it->second.timer);
  candidates_.erase(it);
  // A later event may bring the file back (written again, or renamed in).
  known_.erase(resolved);
}

const WatchedFolderSnapshot* IngestionWatcher::ownerOf(const std::string& path) const {
  const WatchedFolderSnapshot* owner = nullptr;
  const std::string parent = deletingLastPathComponent(path);
  for (const auto& folder : folders_) {
    const bool inside =
        folder.includeSubfolders ? IsUnder(path, folder.path) : parent == folder.path;
    if (inside && (!owner || folder.path.size() > owner->path.size())) owner = &folder;
  }
  return owner;
}

bool IngestionWatcher::underLibrary(const std::string& path) const {
  return !libraryPath_.empty() && (path == libraryPath_ || IsUnder(path, libraryPath_));
}

void IngestionWatcher::watchTree(const std::string& folder, bool recursive) {
  if (underLibrary(folder) || watches_.count(folder)) return;
  auto id = deps_.folderWatch.add(folder);
  if (!id) {
    log::warning(kArea, "cannot watch %s: %s", folder.c_str(), id.error().message().c_str());
    return;
  }
  watches_[folder] = *id;
  awaited_.erase(folder);
  if (!recursive) return;
  auto names = deps_.fileSystem.listDirectory(folder);
  if (!names) return;
  for (const std::string& name : *names) {
    if (name.starts_with('.')) continue;
    const std::string child = joinPath(folder, name);
    auto attributes = deps_.fileSystem.attributes(child);
    if (attributes && attributes->isDirectory) watchTree(child, true);
  }
}

void IngestionWatcher::await(const std::string& root) {
  awaited_.insert(root);
  auto isFolder = [this](const std::string& path) {
    return deps_.fileSystem.attributes(path).value_or(FileAttributes{}).isDirectory;
  };
  // Watch the nearest part of the path that exists; each level that appears
  // moves the watch one step closer. A level made before its parent's watch
  // began sends no event, so the path is looked at again once it is placed.
  for (int levels = 0; levels < 64; ++levels) {
    if (isFolder(root)) {
      rootAppeared(root);
      return;
    }
    std::string ancestor = deletingLastPathComponent(root);
    while (!ancestor.empty() && ancestor != "/" && !isFolder(ancestor)) {
      ancestor = deletingLastPathComponent(ancestor);
    }
    if (ancestor.empty()) return;
    if (!watches_.count(ancestor)) {
      auto id = deps_.folderWatch.add(ancestor);
      if (!id) {
        log::warning(kArea, "cannot wait for %s to appear: %s", root.c_str(),
                     id.error().message().c_str());
        return;
      }
      watches_[ancestor] = *id;
      log::info(kArea, "waiting for %s to appear", root.c_str());
    }
    std::string next = root;
    while (deletingLastPathComponent(next) != ancestor) next = deletingLastPathComponent(next);
    if (!isFolder(next)) return;
  }
}

void IngestionWatcher::rootAppeared(const std::string& root) {
  awaited_.erase(root);
  bool recursive = false;
  for (const auto& f : folders_) {
    if (f.path == root) recursive = f.includeSubfolders;
  }
  log::info(kArea, "%s appeared; watching it", root.c_str());
  watchTree(root, recursive);
  scanForFreshFiles(root, recursive);
}

void IngestionWatcher::folderAppeared(const std::string& folder) {
  for (const std::string& root : std::set<std::string>(awaited_)) {
    if (root == folder) {
      rootAppeared(root);
    } else if (IsUnder(root, folder)) {
      await(root);
    }
  }
  // A new subfolder of a tree: watched, and what was written into it before
  // its watch began is looked at now.
  const WatchedFolderSnapshot* owner = ownerOf(folder);
  if (owner && owner->includeSubfolders && !watches_.count(folder)) {
    watchTree(folder, true);
    scanForFreshFiles(folder, true);
  }
}

void IngestionWatcher::folderGone(const std::string& folder) {
  // The system ended the watches of the folder and of everything below it.
  for (auto it = watches_.begin(); it != watches_.end();) {
    if (it->first == folder || IsUnder(it->first, folder)) {
      it = watches_.erase(it);
    } else {
      ++it;
    }
  }
  for (const auto& f : folders_) {
    if (f.path == folder || IsUnder(f.path, folder)) {
      log::warning(kArea, "%s went away; watching for it to come back", f.path.c_str());
      await(f.path);
    }
  }
}

void IngestionWatcher::scanForFreshFiles(const std::string& folder, bool recursive) {
  auto names = deps_.fileSystem.listDirectory(folder);
  if (!names) return;
  const Date now = deps_.clock.now();
  for (const std::string& name : *names) {
    const std::string path = joinPath(folder, name);
    auto attributes = deps_.fileSystem.attributes(path);
    if (!attributes) continue;
    if (attributes->isDirectory) {
      if (recursive && !name.starts_with('.')) scanForFreshFiles(path, true);
      continue;
    }
    const Date born = attributes->birthTime.value_or(attributes->changeTime);
    if (now.timeIntervalSince(born) <= kNewFileAge) consider(path, false, "folder");
  }
}

}  // namespace klipora::ingestion
