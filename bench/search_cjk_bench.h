// The Chinese, Japanese and Korean part of bench/search, and what bringing
// an older search index up to date costs.
#pragma once

#include <string>

#include "library/model_context.h"

namespace klipora::bench {

// Fills a library of `items` items whose recognised text is a few hundred
// characters of Chinese, Japanese or Korean (the rest as in the Latin
// library), in batches of 1,000 each caught up; prints the save and catch-up
// means beside `latinCatchUpMs` (the Latin library's), the sizes of both
// indexes, and the latency of 2-, 3- and 5-character terms and of a mixed
// query. Returns the library, for MeasureUpgrade.
std::unique_ptr<library::ModelContext> MeasureCjkLibrary(int items, const std::string& dir,
                                                         double latinCatchUpMs);

// The sizes of the two indexes and of the whole store.
void PrintIndexSizes(library::ModelContext& library, const char* label);

// Opening a library whose index predates the second table cost a rebuild of
// both tables from every item; it is now brought up to date in place. Turns
// the library's index into that older form (first table over the text as it
// stands, no second table), timing the rebuilds that older opening did, then
// times the opening now, with SQLite's peak memory for each.
void MeasureUpgrade(library::ModelContext& library, const char* label);

}  // namespace klipora::bench
