#include "library/records.h"

#include "library/app_settings.h"

namespace klipora::library {

template <>
const RecordSchema<AppSettings>& schemaOf<AppSettings>() {
  using R = AppSettings;
  static const RecordSchema<R> schema{
      "AppSettings",
      {
          column(&R::id, "id"),
          column(&R::automaticImportEnabled, "automaticImportEnabled"),
          column(&R::screenshotSourceFolder, "screenshotSourceFolder"),
          column(&R::copyInsteadOfMove, "copyInsteadOfMove"),
          column(&R::backfillOnFirstRun, "backfillOnFirstRun"),
          column(&R::deleteOriginalAfterImport, "deleteOriginalAfterImport"),
          column(&R::libraryFolder, "libraryFolder"),
          column(&R::notificationsEnabled, "notificationsEnabled"),
          column(&R::processingToastEnabled, "processingToastEnabled"),
          column(&R::playSoundOnProcessing, "playSoundOnProcessing"),
          column(&R::productAnnouncementNotificationsEnabled,
                 "productAnnouncementNotificationsEnabled"),
          column(&R::showAnnouncementsInApp, "showAnnouncementsInApp"),
          column(&R::launchAtLoginEnabled, "launchAtLoginEnabled"),
          column(&R::defaultSortMode, "defaultSortMode"),
          column(&R::defaultViewMode, "defaultViewMode"),
          column(&R::showArchivedInSearch, "showArchivedInSearch"),
          column(&R::thumbnailQuality, "thumbnailQuality"),
          column(&R::customCategoryAutoAssignEnabled, "customCategoryAutoAssignEnabled"),
          column(&R::onboardingCompleted, "onboardingCompleted"),
          column(&R::lastBackfillDate, "lastBackfillDate"),
          column(&R::hasSeenPostOnboardingBulkImportPrompt,
                 "hasSeenPostOnboardingBulkImportPrompt"),
          column(&R::bulkImportThreshold, "bulkImportThreshold"),
          column(&R::trashRetentionDays, "trashRetentionDays"),
          column(&R::liveTextEnabled, "liveTextEnabled"),
          column(&R::liveTextVisualLookUpEnabled, "liveTextVisualLookUpEnabled"),
          column(&R::translationOverlayEnabled, "translationOverlayEnabled"),
          column(&R::translationProvider, "translationProvider"),
          column(&R::translationTargetLanguage, "translationTargetLanguage"),
          column(&R::translationOnlineConsentGiven, "translationOnlineConsentGiven"),
      },
      {}};
  return schema;
}

template <>
const RecordSchema<SavedSearch>& schemaOf<SavedSearch>() {
  using R = SavedSearch;
  static const RecordSchema<R> schema{"SavedSearch",
                                      {
                                          column(&R::id, "id"),
                                          column(&R::name, "name"),
                                          column(&R::iconName, "iconName"),
                                          column(&R::query, "query"),
                                          column(&R::sidebarSelectionID, "sidebarSelectionID"),
                                          column(&R::dateFilterPresetRaw, "dateFilterPresetRaw"),
                                          column(&R::dateFilterStart, "dateFilterStart"),
                                          column(&R::dateFilterEnd, "dateFilterEnd"),
                                          column(&R::sortModeRaw, "sortModeRaw"),
                                          column(&R::createdAt, "createdAt"),
                                      },
                                      {}};
  return schema;
}

template <>
const RecordSchema<CustomCategory>& schemaOf<CustomCategory>() {
  using R = CustomCategory;
  static const RecordSchema<R> schema{"CustomCategory",
                                      {
                                          column(&R::id, "id"),
                                          column(&R::name, "name"),
                                          column(&R::systemImage, "systemImage"),
                                          column(&R::createdAt, "createdAt"),
                                          column(&R::categoryDescription, "categoryDescription"),
                                          column(&R::keywordsRaw, "keywordsRaw"),
                                          column(&R::embeddingData, "embeddingData"),
                                      },
                                      {}};
  return schema;
}

template <>
const RecordSchema<UserTag>& schemaOf<UserTag>() {
  using R = UserTag;
  static const RecordSchema<R> schema{
      "UserTag",
      {
          column(&R::id, "id"),
          column(&R::normalizedName, "normalizedName"),
          column(&R::name, "name"),
          column(&R::colorHex, "colorHex"),
          column(&R::createdAt, "createdAt"),
          column(&R::updatedAt, "updatedAt"),
      },
      {"CREATE INDEX IF NOT EXISTS UserTag_normalizedName ON UserTag(normalizedName)"}};
  return schema;
}

template <>
const RecordSchema<WatchedFolder>& schemaOf<WatchedFolder>() {
  using R = WatchedFolder;
  static const RecordSchema<R> schema{"WatchedFolder",
                                      {
                                          column(&R::id, "id"),
                                          column(&R::displayName, "displayName"),
                                          column(&R::path, "path"),
                                          column(&R::isEnabled, "isEnabled"),
                                          column(&R::isDefault, "isDefault"),
                                          column(&R::sortIndex, "sortIndex"),
                                          column(&R::createdAt, "createdAt"),
                                          column(&R::lastErrorRaw, "lastErrorRaw"),
                                          column(&R::lastSeenAt, "lastSeenAt"),
                                          column(&R::includeSubfolders, "includeSubfolders"),
                                          column(&R::lastReconciledAt, "lastReconciledAt"),
                                          column(&R::pausedAt, "pausedAt"),
                                          column(&R::shadowedByFolderID, "shadowedByFolderID"),
                                      },
                                      {}};
  return schema;
}

template <>
const RecordSchema<ShareRecord>& schemaOf<ShareRecord>() {
  using R = ShareRecord;
  static const RecordSchema<R> schema{"ShareRecord",
                                      {
                                          column(&R::id, "id"),
                                          column(&R::title, "title"),
                                          column(&R::createdAt, "createdAt"),
                                          column(&R::isOwner, "isOwner"),
                                          column(&R::zoneOwnerName, "zoneOwnerName"),
                                          column(&R::linkedCategoryID, "linkedCategoryID"),
                                          column(&R::canWrite, "canWrite"),
                                          column(&R::participantSummary, "participantSummary"),
                                          column(&R::itemCount, "itemCount"),
                                          column(&R::lastSyncedAt, "lastSyncedAt"),
                                      },
                                      {}};
  return schema;
}

template <>
const RecordSchema<SharedItemRecord>& schemaOf<SharedItemRecord>() {
  using R = SharedItemRecord;
  static const RecordSchema<R> schema{"SharedItemRecord",
                                      {
                                          column(&R::compositeID, "compositeID"),
                                          column(&R::shareID, "shareID"),
                                          column(&R::sourceItemID, "sourceItemID"),
                                          column(&R::capturedAt, "capturedAt"),
                                          column(&R::text, "text"),
                                          column(&R::addedByName, "addedByName"),
                                          column(&R::cacheFilename, "cacheFilename"),
                                          column(&R::createdAt, "createdAt"),
                                      },
                                      {}};
  return schema;
}

}  // namespace klipora::library
