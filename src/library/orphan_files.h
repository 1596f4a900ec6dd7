// The start-up sweep of files that no record names. An import copies its
// file into "Originals" and writes the thumbnail before its record exists, so
// a process killed in between leaves files behind that no later run would
// ever look at. sweepOrphanFiles removes them.
//
// Why it is safe while imports run (in this process or another): a file is
// removed only when it is older than kOrphanMinimumAge by its modification
// time. A copy in progress is touched by every write, and the time from an
// import's last write to its saved record is the thumbnail and one batched
// save (under a second or two), far below that age. Temporary files of
// atomic writes in these folders are swept by the same rule.
//
// A folder where the records name almost nothing although it holds many
// files is another library's, or its store was replaced: nothing is removed
// there but the files whose names an unfinished import of this store noted
// (copies_in_flight.h), and the sweep logs why. The sweep also forgets the
// noted names it is done with.
//
// Thread rules: call on the thread that owns `context` (the main thread).
#pragma once

#include "library/model_context.h"
#include "library/storage_service.h"
#include "platform/clock.h"

namespace klipora::library {

inline constexpr double kOrphanMinimumAge = 15 * 60;

struct OrphanSweepCounts {
  int examined = 0;  // files in the two folders
  int removed = 0;
  int tooRecent = 0;  // unnamed, but young enough to be an import in flight
  bool refused = false;  // the folder does not look like this store's (see above)
};

// Removes the unnamed files of "Originals" and "Thumbnails" older than
// `minimumAge` seconds, each with a log line. Fails only when the records
// cannot be read.
Result<OrphanSweepCounts> sweepOrphanFiles(ModelContext& context, StorageService& storage,
                                           Clock& clock, double minimumAge = kOrphanMinimumAge);

}  // namespace klipora::library
