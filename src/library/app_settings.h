// AppSettings: the single row of user preferences, stored with the library.
// A default-constructed value holds exactly the defaults of a new row.
#pragma once

#include <optional>
#include <string>

#include "library/enums.h"
#include "library/record_schema.h"

namespace klipora::library {

struct AppSettings {
  UUID id = UUID::Random();
  bool automaticImportEnabled = false;
  std::optional<std::string> screenshotSourceFolder;
  bool copyInsteadOfMove = true;
  bool backfillOnFirstRun = true;
  bool deleteOriginalAfterImport = false;
  std::optional<std::string> libraryFolder;
  bool notificationsEnabled = false;
  bool processingToastEnabled = true;
  // Absent in rows made before the field existed; absent reads as true.
  std::optional<bool> playSoundOnProcessing = true;
  bool productAnnouncementNotificationsEnabled = true;
  bool showAnnouncementsInApp = true;
  bool launchAtLoginEnabled = false;
  SortMode defaultSortMode = SortMode::newestFirst;
  ViewMode defaultViewMode = ViewMode::grid;
  bool showArchivedInSearch = false;
  double thumbnailQuality = 0.8;
  bool customCategoryAutoAssignEnabled = true;
  bool onboardingCompleted = false;
  std::optional<Date> lastBackfillDate;
  bool hasSeenPostOnboardingBulkImportPrompt = false;
  int bulkImportThreshold = 100;
  int trashRetentionDays = 30;
  bool liveTextEnabled = true;
  bool liveTextVisualLookUpEnabled = false;
  bool translationOverlayEnabled = true;
  std::string translationProvider = "apple";  // "apple" on-device, "google" online
  std::string translationTargetLanguage;     // empty: the user's preferred language
  bool translationOnlineConsentGiven = false;

  bool playsSoundOnProcessing() const { return playSoundOnProcessing.value_or(true); }
  // Text may go to the online provider only with the user's consent.
  bool mayTranslateOnline() const {
    return translationProvider == "google" && translationOnlineConsentGiven;
  }
};

template <>
const RecordSchema<AppSettings>& schemaOf<AppSettings>();

}  // namespace klipora::library
