#include "ingestion/watched_folder_reconciler.h"

#include <algorithm>
#include <set>

#include "ingestion/import_error.h"
#include "ingestion/import_pipeline.h"
#include "ingestion/screenshot_evidence.h"
#include "library/screenshot_item.h"
#include "library/trash_deleted_originals_store.h"
#include "platform/log.h"

namespace klipora::ingestion {
namespace {

constexpr char kArea[] = "Reconcile";
constexpr int kSinceSamples = 5;
constexpr int kMaxDepth = 32;
constexpr int64_t kHeadBytes = 64 * 1024;

const char* TrueFalse(bool value) { return value ? "true" : "false"; }

std::string DateText(const std::optional<Date>& date) {
  return date ? formatISO8601(*date) : "nil";
}

class FolderScan {
 public:
  FolderScan(FileSystem& fs, const ScanRequest& request, ScanStats& stats)
      : fs_(fs), request_(request), stats_(stats) {}

  void run(const std::string& folder, int depth) {
    if (auto resolved = fs_.resolvingSymlinks(folder); resolved) {
      if (!visited_.insert(*resolved).second) return;  // a link back up the tree
    }
    auto names = fs_.listDirectory(folder);
    if (!names) return;
    std::sort(names->begin(), names->end());
    for (const std::string& name : *names) {
      if (stats_.capped) return;
      const std::string path = joinPath(folder, name);
      auto attributes = fs_.attributes(path);
      if (attributes && attributes->isDirectory) {
        if (underLibrary(path)) {
          ++stats_.seen, ++stats_.library;
        } else if (request_.recursive && depth < kMaxDepth && !name.starts_with('.')) {
          run(path, depth + 1);
        }
        continue;
      }
      ++stats_.seen;
      consider(path, name, attributes);
    }
  }

  struct SinceSample {
    std::string name;
    Date timestamp;
  };
  std::vector<std::string> accepted;
  std::vector<SinceSample> sinceSamples;

 private:
  void consider(const std::string& path, const std::string& name,
                const Result<FileAttributes>& attributes) {
    if (!SupportedImageTypes::contains(lowerCasedExtension(path))) {
      ++stats_.ext;
    } else if (underLibrary(path)) {
      ++stats_.library;
    } else if (!attributes || !attributes->isRegularFile) {
      ++stats_.notFile;
    } else if (Date stamp = newestTime(*attributes);
               request_.since && stamp.timeIntervalSince(*request_.since) < 0) {
      ++stats_.since;
      if (sinceSamples.size() < kSinceSamples) sinceSamples.push_back({name, stamp});
    } else if (request_.isKnown && request_.isKnown(path)) {
      ++stats_.known;
    } else if (request_.isTombstoned && request_.isTombstoned(path)) {
      ++stats_.tombstoned;
    } else if (isTemporaryName(name) ||
               (request_.requireScreenshotEvidence && !showsScreenshotTool(path, name))) {
      ++stats_.notScreenshot;
    } else if (accepted.size() >= request_.cap) {
      stats_.capped = true;
    } else {
      ++stats_.accepted;
      accepted.push_back(path);
    }
  }

  // The later of the modification and the creation time: a file older than
  // the cut-off by both was there before the last sweep.
  static Date newestTime(const FileAttributes& a) {
    const Date created = a.birthTime.value_or(a.changeTime);
    return created.timeIntervalSince(a.modificationTime) > 0 ? created : a.modificationTime;
  }

  bool showsScreenshotTool(const std::string& path, const std::string& name) {
    if (looksLikeScreenshotName(name)) return true;
    if (fs_.extendedAttribute(path, kScreenCaptureAttribute)) return true;
    auto head = fs_.readFileRange(path, 0, kHeadBytes);
    return head && pngNamesScreenshotTool(*head);
  }

  bool underLibrary(const std::string& path) const {
    const std::string& prefix = request_.libraryPrefix;
    return !prefix.empty() &&
           (path == prefix || (path.starts_with(prefix) && path[prefix.size()] == '/'));
  }

  FileSystem& fs_;
  const ScanRequest& request_;
  ScanStats& stats_;
  std::set<std::string> visited_;
};

}  // namespace

std::vector<std::string> scan(FileSystem& fileSystem, const ScanRequest& request,
                              ScanStats* statsOut) {
  ScanStats stats;
  const std::string& folder = request.folderPath;
  const std::string name =
      request.displayName.empty() ? lastPathComponent(folder) : request.displayName;
  log::info(kArea, "scanning “%s” (recursive=%s, since=%s) at %s", name.c_str(), TrueFalse(request.recursive),
            DateText(request.since).c_str(), folder.c_str());
  auto attributes = fileSystem.attributes(folder);
  if (!attributes || !attributes->isDirectory) {
    log::info(kArea, "  scan abort: folder does not exist at %s", folder.c_str());
    if (statsOut) *statsOut = stats;
    return {};
  }
  if (!fileSystem.listDirectory(folder)) {
    log::info(kArea, "  scan abort: could not enumerate %s", folder.c_str());
    if (statsOut) *statsOut = stats;
    return {};
  }
  FolderScan walk(fileSystem, request, stats);
  walk.run(folder, 0);
  log::info(kArea,
            "  scan stats for %s: seen=%d accepted=%d ext=%d library=%d known=%d tombstoned=%d "
            "notFile=%d notScreenshot=%d since=%d",
            folder.c_str(), stats.seen, stats.accepted, stats.ext, stats.library, stats.known,
            stats.tombstoned, stats.notFile, stats.notScreenshot, stats.since);
  if (!walk.sinceSamples.empty()) {
    log::info(kArea, "    since-rejected samples (cutoff=%s):", DateText(request.since).c_str());
    for (const auto& sample : walk.sinceSamples) {
      log::info(kArea, "      • %s  ts=%s  (%.1fs before cutoff)", sample.name.c_str(),
                formatISO8601(sample.timestamp).c_str(),
                request.since->timeIntervalSince(sample.timestamp));
    }
  }
  if (stats.capped) {
    log::info(kArea, "  more than %zu files are new; the rest wait for the next pass",
              request.cap);
  }
  log::info(kArea, "  → %d candidate(s) accepted from “%s”", stats.accepted, name.c_str());
  if (statsOut) *statsOut = stats;
  return std::move(walk.accepted);
}

int ReconciliationResult::totalCount() const {
  int total = 0;
  for (const auto& folder : folders) total += static_cast<int>(folder.candidates.size());
  return total;
}

ReconciliationResult WatchedFolderReconciler::reconcile(
    const std::vector<library::WatchedFolder>& folders, const std::string& libraryPath,
    library::ModelContext& context, bool force) {
  library::DeletedOriginalsStore tombstones(context);
  auto isKnown = [&context](const std::string& path) {
    library::FetchDescriptor d;
    d.predicate = "sourcePath = ?";
    d.arguments = {library::SqlValue(path)};
    auto count = context.fetchCount<library::ScreenshotItem>(d);
    // Unreadable store: treated as known, so nothing is imported twice.
    return !count || *count > 0;
  };
  ReconciliationResult result;
  for (const auto& folder : folders) {
    ScanRequest request;
    request.folderPath = folder.path;
    request.displayName = folder.displayName;
    request.recursive = folder.includeSubfolders;
    if (!force) request.since = folder.lastReconciledAt;
    request.libraryPrefix = libraryPath;
    request.isKnown = isKnown;
    request.isTombstoned = [&tombstones](const std::string& path) {
      return tombstones.containsSourcePath(path);
    };
    request.cap = kScanCap;
    // The screenshot folders of the system include the pictures folder,
    // where photos lie beside the screenshots.
    request.requireScreenshotEvidence = folder.isDefault;
    ScanStats stats;
    auto candidates = scan(fileSystem_, request, &stats);
    if (candidates.empty()) continue;
    result.folders.push_back({folder, std::move(candidates), !stats.capped});
  }
  return result;
}

}  // namespace klipora::ingestion
