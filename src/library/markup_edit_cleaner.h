// MarkupEditCleaner: removes the saved markup edits of an item (its stashed
// original and manifest under the library's "Edits" folder) when the item is
// deleted for good. The library only knows this interface; the markup module
// provides the real one. NoMarkupEdits is for builds and tests without it.
// Thread rules: main thread.
#pragma once

#include <string>

#include "platform/status.h"
#include "platform/uuid.h"

namespace klipora::library {

class MarkupEditCleaner {
 public:
  virtual ~MarkupEditCleaner() = default;
  // Deletes the edits of `itemID` under `libraryRoot`; none saved is not an error.
  virtual Status clearEdits(const std::string& libraryRoot, const UUID& itemID) = 0;
};

class NoMarkupEdits final : public MarkupEditCleaner {
 public:
  Status clearEdits(const std::string&, const UUID&) override { return Status::Ok(); }
};

}  // namespace klipora::library
