// ImportChecksumClaims: the checksums of imports that have started and not yet
// finished. An import claims its checksum before copying; a second import of
// the same bytes, racing the first or coming after it, is refused as a
// duplicate. Thread rules: main thread only.
#pragma once

#include <set>
#include <string>

#include "library/screenshot_item_store.h"

namespace klipora::ingestion {

class ImportChecksumClaims {
 public:
  explicit ImportChecksumClaims(library::ScreenshotItemStore& store) : store_(store) {}

  // True when the caller now owns `checksum`; false when it is in flight or
  // already in the library.
  bool claim(const std::string& checksum);
  void release(const std::string& checksum) { inFlight_.erase(checksum); }
  const std::set<std::string>& inFlight() const { return inFlight_; }

 private:
  library::ScreenshotItemStore& store_;
  std::set<std::string> inFlight_;
};

}  // namespace klipora::ingestion
