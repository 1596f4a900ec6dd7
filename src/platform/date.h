// Date: an absolute point in time, seconds since 1970-01-01T00:00:00Z as a
// double (the form the store keeps), with ISO 8601 text and local-calendar
// arithmetic. Plain value, thread-safe. Calendar functions use the process's
// local time zone (TZ), as the user's calendar does.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace klipora {

class Date {
 public:
  constexpr Date() = default;
  static constexpr Date fromSecondsSince1970(double s) { return Date(s); }

  constexpr double timeIntervalSince1970() const { return seconds_; }
  // Seconds from `other` to this date (positive when this is later).
  constexpr double timeIntervalSince(Date other) const { return seconds_ - other.seconds_; }
  constexpr Date addingTimeInterval(double seconds) const { return Date(seconds_ + seconds); }

  constexpr auto operator<=>(const Date&) const = default;

 private:
  constexpr explicit Date(double s) : seconds_(s) {}
  double seconds_ = 0;
};

// "2026-11-22T02:47:17Z", with ".123" milliseconds when the date has a fraction.
std::string formatISO8601(Date date);
// Accepts "YYYY-MM-DDTHH:MM:SS", optional fractional seconds, then "Z" or an
// offset "+HH:MM"/"-HH:MM"/"+HHMM". Anything else gives nullopt.
std::optional<Date> parseISO8601(std::string_view text);

// Local-calendar arithmetic (the user's time zone).
Date startOfLocalDay(Date date);
Date startOfLocalMonth(Date date);
// Calendar addition: same wall-clock time `days` days later (DST-aware).
Date addingLocalDays(Date date, int days);
// Calendar addition of months; the day is clamped to the target month's length.
Date addingLocalMonths(Date date, int months);
// Start of the local week that contains `date` (weeks start on Monday).
Date startOfLocalWeek(Date date);
// Parses "yyyy:MM:dd HH:mm:ss" (EXIF/TIFF layout) as local time; nullopt for any
// other layout or an impossible date.
std::optional<Date> parseExifDate(std::string_view text);

}  // namespace klipora
