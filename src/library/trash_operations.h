// Moving items to the trash, restoring them, and removing them for good.
//
// An item in the trash has `deleted` set and `deletedAt` stamped; restoring
// clears both. Removing an item for good deletes, in this order, its
// thumbnail, its markup edits and its library copy, then its row, and
// records its original in DeletedOriginalsStore. The library copy goes last
// because it is the one file that cannot be made again: when a removal
// fails, the item stays in the trash with its copy (restorable, perhaps
// without a thumbnail) and the next attempt retries. A file that is already
// gone is not a failure. A file outside the library root is never touched,
// and keeps its item (the row is the only record of it).
//
// Each batch call ends in one save of the context.
//
// Thread rules: the thread of the context (the main thread).
#pragma once

#include <string>
#include <vector>

#include "library/markup_edit_cleaner.h"
#include "library/model_context.h"
#include "library/screenshot_item.h"
#include "library/storage_service.h"
#include "library/trash_deleted_originals_store.h"
#include "platform/clock.h"

namespace klipora::library {

// What happened to one requested item.
struct TrashOutcome {
  enum class Kind { done, notFound, alreadyInTrash, notInTrash, failed };
  UUID id;
  Kind kind = Kind::done;
  std::string error;  // for failed
};
const char* outcomeName(TrashOutcome::Kind kind);

// Removes `item`'s files and marks its row deleted in `context` (no save).
// `originals` records it. Fails, having changed nothing that a restore
// needs, when a file other than an already-missing one cannot be removed.
Status removeItemForGood(ModelContext& context, StorageService& storage,
                         MarkupEditCleaner& markupEdits, DeletedOriginalsStore& originals,
                         const std::shared_ptr<ScreenshotItem>& item, Date now);

class LibraryTrash {
 public:
  // `storage` is null while the library's files cannot be reached (the
  // volume is gone); moving and restoring still work then, removal does not.
  LibraryTrash(ModelContext& context, StorageService* storage, MarkupEditCleaner& markupEdits,
               Clock& clock);

  // Moves the items to the trash. One outcome per id, in order. A failed
  // save logs "performDelete: save failed" and marks every changed item failed.
  std::vector<TrashOutcome> moveToTrash(const std::vector<UUID>& ids);
  // Takes the items out of the trash.
  std::vector<TrashOutcome> restore(const std::vector<UUID>& ids);
  // Removes the items for good, whether in the trash or not. FailedPrecondition
  // (after "Skipping permanent delete: storageService not ready.") without storage.
  Result<std::vector<TrashOutcome>> deletePermanently(const std::vector<UUID>& ids);
  // Removes every item in the trash for good.
  Result<std::vector<TrashOutcome>> emptyTrash();

 private:
  Result<std::vector<TrashOutcome>> removeAll(const std::vector<std::shared_ptr<ScreenshotItem>>& items,
                                              std::vector<TrashOutcome> outcomes);
  std::vector<TrashOutcome> changeAll(const std::vector<UUID>& ids, bool toTrash);

  ModelContext& context_;
  StorageService* storage_;
  MarkupEditCleaner& markupEdits_;
  Clock& clock_;
};

}  // namespace klipora::library
