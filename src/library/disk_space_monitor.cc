#include "library/disk_space_monitor.h"

#include <algorithm>
#include <cstdio>

#include "platform/localization.h"
#include "platform/log.h"

namespace klipora::library {
namespace {

constexpr double kRefreshInterval = 60;
constexpr double kSnoozeSeconds = 86'400;
constexpr int64_t kGiB = int64_t{1} << 30;

}  // namespace

DiskSpaceMonitor::DiskSpaceMonitor(FileSystem& fs, Clock& clock, Timers& timers,
                                   Executor& mainLoop, Executor& background,
                                   std::string volumePath)
    : fs_(fs),
      clock_(clock),
      timers_(timers),
      mainLoop_(mainLoop),
      background_(background),
      volumePath_(std::move(volumePath)) {}

DiskSpaceMonitor::~DiskSpaceMonitor() {
  *alive_ = false;
  stop();
}

void DiskSpaceMonitor::start() {
  if (timer_) return;
  timer_ = timers_.scheduleRepeating(kRefreshInterval, 0, [this] { refresh(); });
  refresh();
}

void DiskSpaceMonitor::stop() {
  if (timer_) timers_.cancel(*timer_);
  timer_.reset();
}

void DiskSpaceMonitor::refresh() {
  // The reading may outlive this monitor: it takes only what outlives it.
  background_.post([this, alive = alive_, &fs = fs_, &mainLoop = mainLoop_, path = volumePath_] {
    auto capacity = fs.volumeCapacity(path);
    if (!capacity) return;
    mainLoop.post([this, alive, c = *capacity] {
      if (*alive) publish(c.freeBytes, c.totalBytes);
    });
  });
}

void DiskSpaceMonitor::publish(int64_t freeBytes, int64_t totalBytes) {
  freeBytes_ = freeBytes;
  totalBytes_ = totalBytes;
  Severity was = severity_;
  severity_ = severityFor(freeBytes, totalBytes);
  if (severity_ != was && severity_ != Severity::ok) {
    log::warning("Library", "%s: %s free on the volume of %s", severityName(severity_),
                 formatByteCount(freeBytes).c_str(), volumePath_.c_str());
  } else if (severity_ != was) {
    log::info("Library", "free space is back to %s", formatByteCount(freeBytes).c_str());
  }
}

bool DiskSpaceMonitor::shouldShowBanner() const {
  if (severity_ == Severity::ok || dismissedThisSession_) return false;
  return !(snoozedUntil_ && *snoozedUntil_ > clock_.now());
}

void DiskSpaceMonitor::snooze() {
  snoozedUntil_ = clock_.now().addingTimeInterval(kSnoozeSeconds);
  dismissedThisSession_ = true;
}

DiskSpaceMonitor::Severity DiskSpaceMonitor::severityFor(int64_t freeBytes, int64_t totalBytes) {
  int64_t critical = std::min<int64_t>(kGiB, totalBytes / 50);
  int64_t warning = std::min<int64_t>(5 * kGiB, totalBytes / 10);
  if (freeBytes < critical) return Severity::critical;
  if (freeBytes < warning) return Severity::warning;
  return Severity::ok;
}

const char* DiskSpaceMonitor::severityName(Severity severity) {
  switch (severity) {
    case Severity::ok: return "ok";
    case Severity::warning: return "warning";
    case Severity::critical: return "critical";
  }
  return "ok";
}

std::string DiskSpaceMonitor::bannerText() const {
  return std::string(tr("Your computer is running low on storage")) + " (" +
         formatByteCount(freeBytes_) + ")";
}

std::string DiskSpaceMonitor::dismissLabel() { return tr("Dismiss disk space warning"); }

std::string formatByteCount(int64_t bytes) {
  static constexpr const char* kUnits[] = {"KB", "MB", "GB", "TB", "PB"};
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  double value = static_cast<double>(bytes);
  int unit = -1;
  while (value >= 1000 && unit < 4) {
    value /= 1000;
    ++unit;
  }
  char buf[32];
  std::snprintf(buf, sizeof buf, value < 10 ? "%.1f %s" : "%.0f %s", value, kUnits[unit]);
  return buf;
}

}  // namespace klipora::library
