// CopiesInFlight: the names an import is about to give its library copy and
// its thumbnail, noted in the store before the first byte of either is
// written. Saving the item's record clears its two names in the same
// transaction (a trigger on the items table), so a name still noted belongs to
// an import that never finished. The start-up sweep removes the files of such
// names even where unnamed files are most of the folder: a fresh library whose
// first import was killed looks just like a folder of another library, and
// without the notes the sweep would have to leave it alone.
//
// Names are UUIDs (the copy is <UUID>.<ext>, the thumbnail <item id>.jpg) and
// are noted kBatch at a time, one small transaction per batch. A batch older
// than kMaxBatchAge is dropped unused rather than handed out, so that the
// sweep, which forgets names noted longer ago than its minimum age with no
// file behind them, never forgets a name that is about to be used.
//
// Thread rules: main thread (the thread that owns the database).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "library/database.h"
#include "platform/clock.h"
#include "platform/uuid.h"

namespace klipora::library {

class CopiesInFlight {
 public:
  static constexpr int kBatch = 16;
  static constexpr double kMaxBatchAge = 60;

  CopiesInFlight(Database& db, Clock& clock) : db_(db), clock_(clock) {}

  // A fresh name, noted in the store. Absent when the store cannot be written
  // (a full disk, a locked store): the import goes on with a name the sweep
  // does not know, as it would have without the notes.
  std::optional<UUID> take();

 private:
  Database& db_;
  Clock& clock_;
  std::vector<UUID> ready_;
  Date notedAt_;
};

// The table and the trigger that clears a saved item's names; run on every
// open with the other tables.
Status ensureCopiesInFlightTable(Database& db);

struct NotedCopy {
  std::string name;
  Date notedAt;
};
Result<std::vector<NotedCopy>> notedCopies(Database& db);
Status forgetNotedCopies(Database& db, const std::vector<std::string>& names);

}  // namespace klipora::library
