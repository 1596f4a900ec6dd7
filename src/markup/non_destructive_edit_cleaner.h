// NonDestructiveEditCleaner: the library's MarkupEditCleaner backed by the
// markup store, so that deleting an item for good also deletes its stashed
// original and manifest under "Edits/.originals".
// Thread rules: as MarkupNonDestructiveStore (no state of its own).
#pragma once

#include <string>

#include "library/markup_edit_cleaner.h"
#include "markup/markup_non_destructive_store.h"

namespace klipora::markup {

class NonDestructiveEditCleaner final : public library::MarkupEditCleaner {
 public:
  explicit NonDestructiveEditCleaner(FileSystem& fs) : store_(fs) {}

  Status clearEdits(const std::string& libraryRoot, const UUID& itemID) override {
    return store_.clear(libraryRoot, itemID);
  }

 private:
  MarkupNonDestructiveStore store_;
};

}  // namespace klipora::markup
