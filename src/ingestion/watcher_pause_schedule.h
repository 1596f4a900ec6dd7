// WatcherPauseSchedule: the global switch that pauses the import of new
// screenshots, with an end. `pausedUntil` absent means not paused; the far
// future means until the user resumes. The value is kept in the user
// defaults under "com.klipora.watcher.pausedUntil" (seconds since 1970), so a
// command and the daemon share it; a timer clears it when the end comes
// (never sooner than 1 s from the moment it is armed). `onChange` runs only
// when the value really changed.
//
// Thread rules: main thread.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/clock.h"
#include "platform/user_defaults.h"

namespace klipora::ingestion {

class WatcherPauseSchedule {
 public:
  static constexpr char kPausedUntilKey[] = "com.klipora.watcher.pausedUntil";
  // "Until I resume": far enough that no real pause reaches it.
  static constexpr Date kFarFuture = Date::fromSecondsSince1970(64092211200.0);  // year 4001

  // `timers` may be null (a command that only reads or sets the value).
  WatcherPauseSchedule(UserDefaults& defaults, Clock& clock, Timers* timers);
  ~WatcherPauseSchedule();
  WatcherPauseSchedule(const WatcherPauseSchedule&) = delete;
  WatcherPauseSchedule& operator=(const WatcherPauseSchedule&) = delete;

  // Reads the stored value: kept (and the timer armed) when it is the far
  // future or still ahead, cleared otherwise.
  void load();

  bool isPaused() const;
  std::optional<Date> pausedUntil() const { return pausedUntil_; }
  // Absent when not paused; "Screenshot watching is paused", "Paused until
  // tomorrow", or "Paused until " and the end (the time alone when it is
  // less than a day away, else the date and time).
  std::optional<std::string> statusDescription() const;

  // Absent resumes. Returns the defaults' write error, if any.
  Status setPaused(std::optional<Date> until);
  // Until the start of the next local day.
  Status pauseUntilTomorrow();

  std::function<void()> onChange;

 private:
  void arm();

  UserDefaults& defaults_;
  Clock& clock_;
  Timers* timers_;
  std::optional<Date> pausedUntil_;
  std::optional<TimerId> expiry_;
};

}  // namespace klipora::ingestion
