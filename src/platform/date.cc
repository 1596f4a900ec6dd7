#include "platform/date.h"

#include <cmath>
#include <cstdio>
#include <ctime>

namespace klipora {
namespace {

bool ParseDigits(std::string_view text, size_t pos, size_t count, int* out) {
  if (pos + count > text.size()) return false;
  int value = 0;
  for (size_t i = 0; i < count; ++i) {
    char c = text[pos + i];
    if (c < '0' || c > '9') return false;
    value = value * 10 + (c - '0');
  }
  *out = value;
  return true;
}

bool ValidCivil(int year, int month, int day, int hour, int minute, int second) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1 || hour > 23 || minute > 59 || second > 60) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  int limit = kDays[month - 1] + (month == 2 && leap ? 1 : 0);
  return day <= limit;
}

std::tm LocalTm(Date date) {
  time_t t = static_cast<time_t>(std::floor(date.timeIntervalSince1970()));
  std::tm tm{};
  localtime_r(&t, &tm);
  return tm;
}

Date FromLocalTm(std::tm tm, double fraction) {
  tm.tm_isdst = -1;
  time_t t = mktime(&tm);
  return Date::fromSecondsSince1970(static_cast<double>(t) + fraction);
}

double Fraction(Date date) {
  double s = date.timeIntervalSince1970();
  return s - std::floor(s);
}

}  // namespace

std::string formatISO8601(Date date) {
  double s = date.timeIntervalSince1970();
  double whole = std::floor(s);
  int millis = static_cast<int>(std::lround((s - whole) * 1000));
  if (millis == 1000) {
    whole += 1;
    millis = 0;
  }
  time_t t = static_cast<time_t>(whole);
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[64];
  if (millis == 0) {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02dZ", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
  } else {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", tm.tm_year + 1900,
                  tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, millis);
  }
  return buf;
}

std::optional<Date> parseISO8601(std::string_view text) {
  int year, month, day, hour, minute, second;
  if (!ParseDigits(text, 0, 4, &year) || text.size() < 19 || text[4] != '-' ||
      !ParseDigits(text, 5, 2, &month) || text[7] != '-' || !ParseDigits(text, 8, 2, &day) ||
      (text[10] != 'T' && text[10] != 't') || !ParseDigits(text, 11, 2, &hour) ||
      text[13] != ':' || !ParseDigits(text, 14, 2, &minute) || text[16] != ':' ||
      !ParseDigits(text, 17, 2, &second)) {
    return std::nullopt;
  }
  if (!ValidCivil(year, month, day, hour, minute, second)) return std::nullopt;
  size_t pos = 19;
  double fraction = 0;
  if (pos < text.size() && text[pos] == '.') {
    ++pos;
    double scale = 0.1;
    size_t start = pos;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
      fraction += (text[pos] - '0') * scale;
      scale /= 10;
      ++pos;
    }
    if (pos == start) return std::nullopt;
  }
  int offset = 0;
  if (pos < text.size() && (text[pos] == 'Z' || text[pos] == 'z')) {
    ++pos;
  } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
    int sign = text[pos] == '-' ? -1 : 1;
    int oh, om;
    if (!ParseDigits(text, pos + 1, 2, &oh)) return std::nullopt;
    size_t mpos = pos + 3;
    if (mpos < text.size() && text[mpos] == ':') ++mpos;
    if (!ParseDigits(text, mpos, 2, &om) || oh > 23 || om > 59) return std::nullopt;
    offset = sign * (oh * 3600 + om * 60);
    pos = mpos + 2;
  } else {
    return std::nullopt;
  }
  if (pos != text.size()) return std::nullopt;
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  time_t t = timegm(&tm);
  return Date::fromSecondsSince1970(static_cast<double>(t - offset) + fraction);
}

Date startOfLocalDay(Date date) {
  std::tm tm = LocalTm(date);
  tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
  return FromLocalTm(tm, 0);
}

Date startOfLocalMonth(Date date) {
  std::tm tm = LocalTm(date);
  tm.tm_mday = 1;
  tm.tm_hour = tm.tm_min = tm.tm_sec = 0;
  return FromLocalTm(tm, 0);
}

Date addingLocalDays(Date date, int days) {
  std::tm tm = LocalTm(date);
  tm.tm_mday += days;
  return FromLocalTm(tm, Fraction(date));
}

Date addingLocalMonths(Date date, int months) {
  std::tm tm = LocalTm(date);
  int total = tm.tm_mon + months;
  int year = tm.tm_year + 1900 + (total >= 0 ? total / 12 : (total - 11) / 12);
  int month = ((total % 12) + 12) % 12;
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  int limit = kDays[month] + (month == 1 && leap ? 1 : 0);
  tm.tm_year = year - 1900;
  tm.tm_mon = month;
  if (tm.tm_mday > limit) tm.tm_mday = limit;
  return FromLocalTm(tm, Fraction(date));
}

Date startOfLocalWeek(Date date) {
  Date day = startOfLocalDay(date);
  std::tm tm = LocalTm(day);
  int sinceMonday = (tm.tm_wday + 6) % 7;
  return startOfLocalDay(addingLocalDays(day, -sinceMonday));
}

std::optional<Date> parseExifDate(std::string_view text) {
  int year, month, day, hour, minute, second;
  if (text.size() != 19 || !ParseDigits(text, 0, 4, &year) || text[4] != ':' ||
      !ParseDigits(text, 5, 2, &month) || text[7] != ':' || !ParseDigits(text, 8, 2, &day) ||
      text[10] != ' ' || !ParseDigits(text, 11, 2, &hour) || text[13] != ':' ||
      !ParseDigits(text, 14, 2, &minute) || text[16] != ':' ||
      !ParseDigits(text, 17, 2, &second) || !ValidCivil(year, month, day, hour, minute, second)) {
    return std::nullopt;
  }
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  return FromLocalTm(tm, 0);
}

}  // namespace klipora
