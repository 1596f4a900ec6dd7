// The small stored enumerations of the library records: ProcessingState,
// ImportSourceType, SortMode, ViewMode and DateFilterPreset. Raw values equal
// the case names. Display names are localised through gettext.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "library/enum_table.h"
#include "platform/date.h"

namespace klipora::library {

enum class ProcessingState {
  pending,
  thumbnailGenerated,
  ocrComplete,
  classificationComplete,
  enrichmentComplete,
  complete,
  failed,
  partiallyFailed,
};
// complete, failed and partiallyFailed end processing.
bool isTerminal(ProcessingState state);

enum class ImportSourceType { automaticWatch, manualImport, backfill, folderImport };

enum class SortMode { newestFirst, oldestFirst, mostViewed, recentlyProcessed };
std::string displayName(SortMode mode);

enum class ViewMode { grid, list };
std::string displayName(ViewMode mode);

enum class DateFilterPreset { all, today, yesterday, last7Days, last30Days, thisMonth, lastMonth, custom };
std::string displayName(DateFilterPreset preset);

// A date interval; an absent end is open (the library query reads it as "now").
struct DateRange {
  Date start;
  std::optional<Date> end;
};
// The interval of a preset around `now` in the local calendar; nullopt for
// `all` and `custom` (a custom range takes its bounds from the filter). The
// 7- and 30-day windows count back from the current moment, not from midnight.
std::optional<DateRange> dateRange(DateFilterPreset preset, Date now);

template <>
struct EnumTraits<ProcessingState> {
  static std::span<const EnumCase<ProcessingState>> cases();
};
template <>
struct EnumTraits<ImportSourceType> {
  static std::span<const EnumCase<ImportSourceType>> cases();
};
template <>
struct EnumTraits<SortMode> {
  static std::span<const EnumCase<SortMode>> cases();
};
template <>
struct EnumTraits<ViewMode> {
  static std::span<const EnumCase<ViewMode>> cases();
};
template <>
struct EnumTraits<DateFilterPreset> {
  static std::span<const EnumCase<DateFilterPreset>> cases();
};

}  // namespace klipora::library
