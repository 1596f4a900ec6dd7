#include "ingestion/watcher_pause_schedule.h"

#include <algorithm>
#include <ctime>

#include "platform/log.h"

namespace klipora::ingestion {
namespace {

std::string FormatLocal(Date date, const char* format) {
  const std::time_t t = static_cast<std::time_t>(date.timeIntervalSince1970());
  std::tm local{};
  localtime_r(&t, &local);
  char out[64];
  return std::strftime(out, sizeof out, format, &local) ? out : "";
}

}  // namespace

WatcherPauseSchedule::WatcherPauseSchedule(UserDefaults& defaults, Clock& clock, Timers* timers)
    : defaults_(defaults), clock_(clock), timers_(timers) {}

WatcherPauseSchedule::~WatcherPauseSchedule() {
  if (expiry_ && timers_) timers_->cancel(*expiry_);
}

void WatcherPauseSchedule::load() {
  std::optional<Date> stored;
  if (auto seconds = defaults_.doubleForKey(kPausedUntilKey)) {
    // A hand-edited date past the far future means the same: paused until
    // resumed.
    stored = Date::fromSecondsSince1970(std::min(*seconds, kFarFuture.timeIntervalSince1970()));
  }
  const bool keep = stored && (*stored == kFarFuture || clock_.now() < *stored);
  const std::optional<Date> before = pausedUntil_;
  pausedUntil_ = keep ? stored : std::nullopt;
  if (stored && !keep) (void)defaults_.removeObject(kPausedUntilKey);
  arm();
  if (before != pausedUntil_ && onChange) onChange();
}

bool WatcherPauseSchedule::isPaused() const {
  return pausedUntil_ && (*pausedUntil_ == kFarFuture || clock_.now() < *pausedUntil_);
}

std::optional<std::string> WatcherPauseSchedule::statusDescription() const {
  if (!isPaused()) return std::nullopt;
  if (*pausedUntil_ == kFarFuture) return "Screenshot watching is paused";
  const Date now = clock_.now();
  const Date tomorrow = startOfLocalDay(startOfLocalDay(now).addingTimeInterval(36 * 3600));
  const Date dayAfter = startOfLocalDay(tomorrow.addingTimeInterval(36 * 3600));
  if (!(*pausedUntil_ < tomorrow) && *pausedUntil_ < dayAfter) return "Paused until tomorrow";
  const bool soon = pausedUntil_->timeIntervalSince(now) < 86400;
  return "Paused until " + FormatLocal(*pausedUntil_, soon ? "%H:%M" : "%d %b %Y %H:%M");
}

Status WatcherPauseSchedule::setPaused(std::optional<Date> until) {
  const bool changed = until != pausedUntil_;
  pausedUntil_ = until;
  Status written = until ? defaults_.setDouble(kPausedUntilKey, until->timeIntervalSince1970())
                         : defaults_.removeObject(kPausedUntilKey);
  arm();
  if (changed) {
    log::info("Watcher", "pause %s",
              until ? statusDescription().value_or("ended").c_str() : "cleared; watching again");
    if (onChange) onChange();
  }
  return written;
}

Status WatcherPauseSchedule::pauseUntilTomorrow() {
  const Date today = startOfLocalDay(clock_.now());
  // The next day's start by the calendar (days of 23 or 25 hours included).
  return setPaused(startOfLocalDay(today.addingTimeInterval(36 * 3600)));
}

void WatcherPauseSchedule::arm() {
  if (!timers_) return;
  if (expiry_) timers_->cancel(*expiry_);
  expiry_.reset();
  if (!pausedUntil_ || *pausedUntil_ == kFarFuture) return;
  const double delay = std::max(pausedUntil_->timeIntervalSince(clock_.now()), 1.0);
  expiry_ = timers_->scheduleOnce(delay, [this] {
    expiry_.reset();
    (void)setPaused(std::nullopt);
  });
}

}  // namespace klipora::ingestion
