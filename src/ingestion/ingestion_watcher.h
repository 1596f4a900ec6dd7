// IngestionWatcher: notices new screenshots in the watched folders as they
// are written and hands each one, once and complete, to `onNewFile`.
//
// Every name that appears in a watched folder (and, for folders watched with
// their subfolders, in any folder below it, watched as it appears) passes,
// in order: an accepted image extension; not a temporary name (dot-files,
// "#123", "shot.png.XXXXXX"); not under the library folder. It is then
// resolved through symbolic links and becomes a candidate, checked a moment
// later: it must be a regular file, born within the last 30 s when first
// seen (an old file moved or copied in is not a new screenshot), and
// complete (see screenshot_evidence.h); a file still being written is looked
// at again until it is, for at most two minutes. In a screenshot folder found
// on this system (`isDefault`) the file must also show that a screenshot
// tool made it (its name, its PNG "Software" text or the screen-capture
// attribute); in a folder the user added every image counts.
//
// A watched folder that does not exist yet, or that is deleted or unmounted,
// is awaited: its nearest existing parent is watched until it (re)appears,
// then it is watched again and its fresh files are looked at. When the
// system drops events, every folder is listed again for fresh files.
//
// Two path sets keep the work single: the candidates seen (`known`) and the
// paths handed off (`handedOff`), each capped at 5000 with the oldest
// dropped first.
//
// Thread rules: main thread only (events, timers and `onNewFile` all run
// there).
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/active_application.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/folder_watch.h"
#include "platform/uuid.h"

namespace klipora::ingestion {

// A plain copy of an enabled, unpaused watched folder.
struct WatchedFolderSnapshot {
  UUID id;
  std::string path;
  bool isDefault = false;  // a screenshot folder of this system, not one the user added
  bool includeSubfolders = false;

  bool operator==(const WatchedFolderSnapshot&) const = default;
};

// Paths in insertion order, at most `capacity`; the oldest go first.
class BoundedPathSet {
 public:
  explicit BoundedPathSet(size_t capacity) : capacity_(capacity) {}
  // False when the path was already there.
  bool insert(const std::string& path);
  void erase(const std::string& path);
  bool contains(const std::string& path) const { return paths_.count(path) > 0; }
  size_t size() const { return paths_.size(); }
  void clear();

 private:
  size_t capacity_;
  std::set<std::string> paths_;
  std::deque<std::string> order_;  // may hold erased paths; skipped on eviction
};

class IngestionWatcher {
 public:
  struct Deps {
    FolderWatch& folderWatch;
    FileSystem& fileSystem;
    Clock& clock;
    Timers& timers;
  };
  using NewFileHandler =
      std::function<void(const std::string& path, std::optional<std::string> appBundleID,
                         std::optional<std::string> appName)>;

  static constexpr size_t kPathSetCapacity = 5000;
  static constexpr double kNewFileAge = 30;
  // First look after an event that says the file is probably complete
  // (closed after writing, renamed into place), and after one that does not
  // (created: still being written, or linked into place whole, or written
  // by a tool that closes it seconds later). Both looks are cheap and read
  // the file's bytes to decide, so neither waits longer than it must.
  static constexpr double kProbablyCompleteDelay = 0.3;
  static constexpr double kMaybeCompleteDelay = 0.3;
  static constexpr double kRecheckDelay = 0.5;
  static constexpr double kGiveUpAfter = 120;

  IngestionWatcher(Deps deps, std::string libraryPath);
  ~IngestionWatcher();
  IngestionWatcher(const IngestionWatcher&) = delete;
  IngestionWatcher& operator=(const IngestionWatcher&) = delete;

  NewFileHandler onNewFile;
  // Asked, when a file is first seen, which application the screenshot
  // shows; null: none is recorded.
  void setActiveApplication(ActiveApplication* application) { activeApplication_ = application; }

  // Watches exactly these folders from now on.
  void reloadFolders(std::vector<WatchedFolderSnapshot> folders);
  // Stops every watch and forgets every candidate.
  void stopAll();
  bool isWatching() const { return !folders_.empty(); }
  // Folders watched now, and watched folders waiting to appear.
  std::vector<std::string> watchedFolders() const;
  std::vector<std::string> awaitedFolders() const;

 private:
  struct Candidate {
    std::string path;  // as reported, for the log
    const WatchedFolderSnapshot* folder = nullptr;
    const char* detection = "fsevents";
    bool closed = false;  // closed after writing, or renamed into place
    double firstSeen = 0;
    int64_t lastSize = -1;
    bool checked = false;
    std::optional<CapturingApplication> application;
    std::optional<TimerId> timer;
  };

  void handle(const FolderWatchEvent& event);
  void consider(const std::string& path, bool probablyComplete, const char* detection);
  void schedule(const std::string& resolved, double delay);
  void check(const std::string& resolved);
  bool showsScreenshotTool(const std::string& path, std::string_view head);
  void handOff(const std::string& resolved, const Candidate& candidate);
  void forget(const std::string& resolved);

  // The watched folder a file belongs to (its own folder for a top-level
  // folder, any folder below it for a tree).
  const WatchedFolderSnapshot* ownerOf(const std::string& path) const;
  void watchTree(const std::string& folder, bool recursive);
  void await(const std::string& root);
  void rootAppeared(const std::string& root);
  void folderAppeared(const std::string& folder);
  void folderGone(const std::string& folder);
  // Looks at the files of a folder that are young enough to be new.
  void scanForFreshFiles(const std::string& folder, bool recursive);
  bool underLibrary(const std::string& path) const;

  Deps deps_;
  ActiveApplication* activeApplication_ = nullptr;
  const std::string libraryPath_;
  std::vector<WatchedFolderSnapshot> folders_;
  std::map<std::string, FolderWatch::WatchId> watches_;  // folder path → watch
  std::set<std::string> awaited_;                        // roots that do not exist now
  std::map<std::string, Candidate> candidates_;          // by resolved path
  BoundedPathSet known_{kPathSetCapacity};
  BoundedPathSet handedOff_{kPathSetCapacity};
};

}  // namespace klipora::ingestion
