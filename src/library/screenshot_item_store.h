// ScreenshotItemStore: questions about items that the import asks of the store.
// Thread rules: main thread (it uses the main context).
#pragma once

#include <string>

#include "library/model_context.h"

namespace klipora::library {

class ScreenshotItemStore {
 public:
  explicit ScreenshotItemStore(ModelContext* context) : context_(context) {}

  // True when the library holds an item with this checksum: saved, or
  // inserted and waiting for the next batched save. Items in the trash count
  // (the user restores them rather than importing a second copy). Without a
  // context, or when the store cannot be read, false.
  bool isDuplicate(const std::string& checksum);

 private:
  ModelContext* context_;
};

}  // namespace klipora::library
