#include "library/screenshot_item_store.h"

#include "library/screenshot_item.h"

namespace klipora::library {

bool ScreenshotItemStore::isDuplicate(const std::string& checksum) {
  if (!context_) return false;
  for (const auto& item : context_->pendingInserts<ScreenshotItem>()) {
    if (item->checksum == checksum) return true;
  }
  FetchDescriptor d;
  d.predicate = "checksum = ?";
  d.arguments = {SqlValue(checksum)};
  auto count = context_->fetchCount<ScreenshotItem>(d);
  if (!count) {
    log::error("Library", "duplicate check failed: %s", count.error().message().c_str());
    return false;
  }
  return *count > 0;
}

}  // namespace klipora::library
