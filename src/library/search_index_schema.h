// The schema of the search index (search_index.h tells the whole): its
// tables, views and triggers, the state that records what it covers, and
// how a store's index is judged and brought to this version. For SearchIndex.
#pragma once

#include <string>

#include "library/database.h"

namespace klipora::library::search_schema {

// The views the two indexes read item text through, as each receives it.
inline constexpr const char* kWordsView = "ScreenshotSearchSource";
inline constexpr const char* kCjkView = "ScreenshotSearchCJKSource";

// The indexed column names, each written through the SQL `function` when
// one is given ("f(title) AS title, ...").
std::string columnNames(const std::string& function = "");

// What ensure() finds in a store.
enum class Stored { current, upgradable, stale };
Result<Stored> inspect(Database& db);

// Brings an upgradable index to this version in place.
Status upgrade(Database& db);

// Drops whatever index the store holds and builds this version's from the
// items' text.
Status createAndFill(Database& db);

// Moves the recorded state past a catch-up; runs before the notes are
// cleared.
Status advanceState(Database& db);

}  // namespace klipora::library::search_schema
