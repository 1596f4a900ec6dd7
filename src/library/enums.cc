#include "library/enums.h"

#include "platform/localization.h"

namespace klipora::library {

bool isTerminal(ProcessingState state) {
  return state == ProcessingState::complete || state == ProcessingState::failed ||
         state == ProcessingState::partiallyFailed;
}

std::span<const EnumCase<ProcessingState>> EnumTraits<ProcessingState>::cases() {
  using S = ProcessingState;
  static constexpr EnumCase<S> kCases[] = {
      {S::pending, "pending"},
      {S::thumbnailGenerated, "thumbnailGenerated"},
      {S::ocrComplete, "ocrComplete"},
      {S::classificationComplete, "classificationComplete"},
      {S::enrichmentComplete, "enrichmentComplete"},
      {S::complete, "complete"},
      {S::failed, "failed"},
      {S::partiallyFailed, "partiallyFailed"},
  };
  return kCases;
}

std::span<const EnumCase<ImportSourceType>> EnumTraits<ImportSourceType>::cases() {
  using S = ImportSourceType;
  static constexpr EnumCase<S> kCases[] = {
      {S::automaticWatch, "automaticWatch"},
      {S::manualImport, "manualImport"},
      {S::backfill, "backfill"},
      {S::folderImport, "folderImport"},
  };
  return kCases;
}

std::span<const EnumCase<SortMode>> EnumTraits<SortMode>::cases() {
  using S = SortMode;
  static constexpr EnumCase<S> kCases[] = {
      {S::newestFirst, "newestFirst"},
      {S::oldestFirst, "oldestFirst"},
      {S::mostViewed, "mostViewed"},
      {S::recentlyProcessed, "recentlyProcessed"},
  };
  return kCases;
}

std::span<const EnumCase<ViewMode>> EnumTraits<ViewMode>::cases() {
  static constexpr EnumCase<ViewMode> kCases[] = {{ViewMode::grid, "grid"},
                                                  {ViewMode::list, "list"}};
  return kCases;
}

std::span<const EnumCase<DateFilterPreset>> EnumTraits<DateFilterPreset>::cases() {
  using P = DateFilterPreset;
  static constexpr EnumCase<P> kCases[] = {
      {P::all, "all"},           {P::today, "today"},           {P::yesterday, "yesterday"},
      {P::last7Days, "last7Days"}, {P::last30Days, "last30Days"}, {P::thisMonth, "thisMonth"},
      {P::lastMonth, "lastMonth"}, {P::custom, "custom"},
  };
  return kCases;
}

std::string displayName(SortMode mode) {
  switch (mode) {
    // TRANSLATORS: Sort order
    case SortMode::newestFirst: return tr("Newest First");
    // TRANSLATORS: Sort order
    case SortMode::oldestFirst: return tr("Oldest First");
    // TRANSLATORS: Sort order
    case SortMode::mostViewed: return tr("Most Viewed");
    // TRANSLATORS: Sort order
    case SortMode::recentlyProcessed: return tr("Recently Processed");
  }
  return {};
}

std::string displayName(ViewMode mode) {
  switch (mode) {
    // TRANSLATORS: Library view mode
    case ViewMode::grid: return tr("Grid");
    // TRANSLATORS: Library view mode
    case ViewMode::list: return tr("List");
  }
  return {};
}

std::string displayName(DateFilterPreset preset) {
  switch (preset) {
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::all: return tr("All Dates");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::today: return tr("Today");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::yesterday: return tr("Yesterday");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::last7Days: return tr("Last 7 Days");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::last30Days: return tr("Last 30 Days");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::thisMonth: return tr("This Month");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::lastMonth: return tr("Last Month");
    // TRANSLATORS: Date filter preset
    case DateFilterPreset::custom: return tr("Custom Range");
  }
  return {};
}

std::optional<DateRange> dateRange(DateFilterPreset preset, Date now) {
  Date today = startOfLocalDay(now);
  switch (preset) {
    case DateFilterPreset::all:
    case DateFilterPreset::custom:
      return std::nullopt;
    case DateFilterPreset::today:
      return DateRange{today, std::nullopt};
    case DateFilterPreset::yesterday:
      return DateRange{addingLocalDays(today, -1), today};
    case DateFilterPreset::last7Days:
      return DateRange{addingLocalDays(now, -7), std::nullopt};
    case DateFilterPreset::last30Days:
      return DateRange{addingLocalDays(now, -30), std::nullopt};
    case DateFilterPreset::thisMonth:
      return DateRange{startOfLocalMonth(now), std::nullopt};
    case DateFilterPreset::lastMonth: {
      Date month = startOfLocalMonth(now);
      return DateRange{addingLocalMonths(month, -1), month};
    }
  }
  return std::nullopt;
}

}  // namespace klipora::library
