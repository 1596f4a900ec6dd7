#include "ingestion/import_checksum_claims.h"

namespace klipora::ingestion {

bool ImportChecksumClaims::claim(const std::string& checksum) {
  if (inFlight_.count(checksum)) return false;
  if (store_.isDuplicate(checksum)) return false;
  inFlight_.insert(checksum);
  return true;
}

}  // namespace klipora::ingestion
