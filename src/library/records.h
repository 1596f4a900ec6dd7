// The smaller library records: SavedSearch, CustomCategory, UserTag,
// WatchedFolder, ShareRecord and SharedItemRecord. Fields in declaration
// order, named as stored. Plain value types.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "library/enums.h"
#include "library/list_encoding.h"
#include "library/record_schema.h"

namespace klipora::library {

struct SavedSearch {
  UUID id = UUID::Random();
  std::string name;
  std::string iconName = "magnifyingglass";
  std::string query;
  std::string sidebarSelectionID = "all";
  std::string dateFilterPresetRaw = "all";
  std::optional<Date> dateFilterStart;
  std::optional<Date> dateFilterEnd;
  std::string sortModeRaw = "newestFirst";
  Date createdAt;

  DateFilterPreset dateFilterPreset() const {
    return fromRaw<DateFilterPreset>(dateFilterPresetRaw).value_or(DateFilterPreset::all);
  }
  SortMode sortMode() const {
    return fromRaw<SortMode>(sortModeRaw).value_or(SortMode::newestFirst);
  }
};

struct CustomCategory {
  UUID id = UUID::Random();
  std::string name;
  std::string systemImage = "folder";
  Date createdAt;
  std::optional<std::string> categoryDescription;
  std::optional<std::string> keywordsRaw;
  std::optional<Bytes> embeddingData;

  std::vector<std::string> keywords() const { return splitList(keywordsRaw.value_or("")); }
  void setKeywords(const std::vector<std::string>& v) { keywordsRaw = joinList(v); }
};

struct UserTag {
  UUID id = UUID::Random();
  std::string normalizedName;
  std::string name;
  std::string colorHex;
  Date createdAt;
  Date updatedAt;
};

struct WatchedFolder {
  UUID id = UUID::Random();
  std::string displayName;
  std::string path;
  bool isEnabled = true;
  bool isDefault = false;
  int sortIndex = 0;
  Date createdAt;
  std::optional<std::string> lastErrorRaw;
  std::optional<Date> lastSeenAt;
  bool includeSubfolders = false;
  std::optional<Date> lastReconciledAt;
  std::optional<Date> pausedAt;
  std::optional<UUID> shadowedByFolderID;
};

struct ShareRecord {
  UUID id = UUID::Random();
  std::string title;
  Date createdAt;
  bool isOwner = true;
  std::optional<std::string> zoneOwnerName;
  std::optional<UUID> linkedCategoryID;
  bool canWrite = true;
  std::optional<std::string> participantSummary;
  int itemCount = 0;
  std::optional<Date> lastSyncedAt;
};

struct SharedItemRecord {
  std::string compositeID;  // identity: share id and source item id combined
  UUID shareID;
  UUID sourceItemID;
  std::optional<Date> capturedAt;
  std::optional<std::string> text;
  std::optional<std::string> addedByName;
  std::optional<std::string> cacheFilename;
  Date createdAt;

  static std::string makeCompositeID(const UUID& shareID, const UUID& sourceItemID) {
    return shareID.uuidString() + "_" + sourceItemID.uuidString();
  }
};

template <>
const RecordSchema<SavedSearch>& schemaOf<SavedSearch>();
template <>
const RecordSchema<CustomCategory>& schemaOf<CustomCategory>();
template <>
const RecordSchema<UserTag>& schemaOf<UserTag>();
template <>
const RecordSchema<WatchedFolder>& schemaOf<WatchedFolder>();
template <>
const RecordSchema<ShareRecord>& schemaOf<ShareRecord>();
template <>
const RecordSchema<SharedItemRecord>& schemaOf<SharedItemRecord>();

}  // namespace klipora::library
