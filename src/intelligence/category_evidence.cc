#include "intelligence/category_evidence.h"

namespace klipora::intelligence {

std::string_view evidenceSourceName(EvidenceSource source) {
  switch (source) {
    case EvidenceSource::ocrText: return "ocrText";
    case EvidenceSource::classifierLabel: return "classifierLabel";
    case EvidenceSource::filename: return "filename";
    case EvidenceSource::entity: return "entity";
    case EvidenceSource::semanticSimilarity: return "semanticSimilarity";
    case EvidenceSource::visualSimilarity: return "visualSimilarity";
    case EvidenceSource::sourceApp: return "sourceApp";
    case EvidenceSource::negativeEvidence: return "negativeEvidence";
  }
  return "unknown";
}

}  // namespace klipora::intelligence
