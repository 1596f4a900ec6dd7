// DiskSpaceMonitor: watches the free space of the library's volume once a
// minute and says when to warn. Thresholds (severityFor):
//   critical below 1 GiB free, warning below 5 GiB free; on volumes smaller
//   than 50 GiB the limits shrink to 2 % and 10 % of the volume, so a small
//   disk is not in a permanent warning state.
// 5 GiB is several thousand screenshots with their thumbnails; 1 GiB is where
// SQLite's write-ahead log and the copies start to fail within hours of use.
//
// Thread rules: main thread; the capacity is read on the background executor
// and published on the main one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/clock.h"
#include "platform/file_system.h"

namespace klipora::library {

class DiskSpaceMonitor {
 public:
  enum class Severity { ok, warning, critical };

  DiskSpaceMonitor(FileSystem& fs, Clock& clock, Timers& timers, Executor& mainLoop,
                   Executor& background, std::string volumePath);
  ~DiskSpaceMonitor();

  // Starts the 60-second refresh timer and refreshes at once; idempotent.
  void start();
  void stop();
  void refresh();

  int64_t freeBytes() const { return freeBytes_; }
  int64_t totalBytes() const { return totalBytes_; }
  Severity severity() const { return severity_; }
  std::optional<Date> snoozedUntil() const { return snoozedUntil_; }
  bool dismissedThisSession() const { return dismissedThisSession_; }
  bool shouldShowBanner() const;
  // Hides the banner for 24 hours and for the rest of this session.
  void snooze();

  static Severity severityFor(int64_t freeBytes, int64_t totalBytes);
  static const char* severityName(Severity severity);
  // "Your computer is running low on storage" with the free size.
  std::string bannerText() const;
  // The close button's accessible label.
  static std::string dismissLabel();

 private:
  void publish(int64_t freeBytes, int64_t totalBytes);

  FileSystem& fs_;
  Clock& clock_;
  Timers& timers_;
  Executor& mainLoop_;
  Executor& background_;
  std::string volumePath_;
  std::optional<TimerId> timer_;
  int64_t freeBytes_ = 0;
  int64_t totalBytes_ = 0;
  Severity severity_ = Severity::ok;
  std::optional<Date> snoozedUntil_;
  bool dismissedThisSession_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// "1.2 GB", "512 MB", "900 bytes": decimal units, as file managers show sizes.
std::string formatByteCount(int64_t bytes);

}  // namespace klipora::library
