#include "intelligence/custom_category_keyword_builder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "intelligence/text_words.h"
#include "library/records.h"
#include "library/search_text.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

std::string Describe(const library::CustomCategory& category) {
  return "\"" + category.name + "\"";
}

}  // namespace

library::Bytes encodeCentroid(const std::vector<float>& centroid) {
  library::Bytes bytes;
  bytes.data.resize(centroid.size() * sizeof(float));
  // x86-64 and arm64 are little-endian, as the stored form is.
  std::memcpy(bytes.data.data(), centroid.data(), bytes.data.size());
  return bytes;
}

std::vector<float> decodeCentroid(const library::Bytes& bytes) {
  std::vector<float> out(bytes.data.size() / sizeof(float));
  std::memcpy(out.data(), bytes.data.data(), out.size() * sizeof(float));
  for (float v : out) {
    if (!std::isfinite(v)) return {};
  }
  return out;
}

std::vector<std::string> CustomCategoryKeywordBuilder::sanitize(
    const std::vector<std::string>& terms) {
  std::vector<std::string> out;
  for (const auto& term : terms) {
    std::string t = library::lowercased(library::validUtf8(trimBlanks(term)));
    if (characterCount(t) < 3) continue;
    if (std::find(kKeywordStopWords.begin(), kKeywordStopWords.end(), t) !=
        kKeywordStopWords.end()) {
      continue;
    }
    if (std::find(out.begin(), out.end(), t) != out.end()) continue;
    out.push_back(std::move(t));
  }
  return out;
}

std::vector<std::string> CustomCategoryKeywordBuilder::extract(std::string_view text) {
  const std::string lower = library::lowercased(library::validUtf8(text));
  const auto words = splitWords(lower);
  std::vector<std::string> content;
  if (lexicon_.isAvailable()) {
    for (std::string_view word : words) {
      if (auto base = lexicon_.nounOrAdjectiveBase(word)) content.push_back(*base);
    }
  }
  // The lexicon knows English; words it knows none of are kept as they are.
  if (content.empty()) {
    for (std::string_view word : words) content.emplace_back(word);
  }
  return sanitize(content);
}

std::string CustomCategoryKeywordBuilder::sanitizedText(std::string_view text) {
  std::string out;
  for (const auto& term : extract(text)) out += (out.empty() ? "" : ", ") + term;
  return out;
}

std::optional<std::vector<float>> CustomCategoryKeywordBuilder::computeCentroid(
    const std::vector<std::string>& terms, const std::string& fallbackText) {
  std::vector<double> sum;
  size_t count = 0;
  for (const auto& term : terms) {
    std::vector<float> v = embedder_.embed(term);
    if (v.empty() || (!sum.empty() && v.size() != sum.size())) continue;
    if (sum.empty()) sum.assign(v.size(), 0.0);
    for (size_t i = 0; i < v.size(); ++i) sum[i] += v[i];
    ++count;
  }
  if (count == 0) {
    std::vector<float> whole = embedder_.embed(fallbackText);
    if (whole.empty()) return std::nullopt;
    return whole;
  }
  double norm = 0;
  for (double v : sum) norm += v * v;
  if (norm == 0) return std::nullopt;
  std::vector<float> out(sum.size());
  for (size_t i = 0; i < sum.size(); ++i) out[i] = static_cast<float>(sum[i] / std::sqrt(norm));
  return out;
}

Result<bool> CustomCategoryKeywordBuilder::storeIfCurrent(
    const UUID& categoryID, const std::string& description,
    const std::vector<std::string>& keywords, const std::optional<std::vector<float>>& centroid,
    library::ModelContext& context, const char* tag) {
  auto category = context.fetchByKey<library::CustomCategory>(categoryID.uuidString());
  if (!category) return Err(category.error());
  if (!*category || (*category)->categoryDescription.value_or("") != description) {
    log::classify(std::string(tag) + " STALE cat=" +
                  (*category ? Describe(**category) : categoryID.uuidString()) +
                  " (desc changed or deleted — skipped)");
    return false;
  }
  (*category)->setKeywords(keywords);
  (*category)->embeddingData =
      centroid ? std::optional<library::Bytes>(encodeCentroid(*centroid)) : std::nullopt;
  RETURN_IF_ERROR(context.save());
  log::classify(std::string(tag) + " OK cat=" + Describe(**category) +
                " count=" + std::to_string(keywords.size()) +
                " centroid=" + log::yesNo(centroid.has_value()) + " embedder=" + embedder_.name());
  return true;
}

Status CustomCategoryKeywordBuilder::buildAndEnrich(const UUID& categoryID,
                                                    const std::string& description,
                                                    library::ModelContext& context,
                                                    std::function<void()> onApplied,
                                                    std::function<void()> onEnrichFinished) {
  auto category = context.fetchByKey<library::CustomCategory>(categoryID.uuidString());
  if (!category) return category.error();
  if (!*category) return Status::Ok();
  const std::string name = (*category)->name;
  const std::string source = trimBlanks(description).empty() ? name : description;
  std::vector<std::string> base = extract(source);
  auto stored = storeIfCurrent(categoryID, description, base, computeCentroid(base, source),
                               context, "kw-build");
  if (!stored) return stored.error();
  if (!*stored) return Status::Ok();
  if (onApplied) onApplied();
  if (!model_.isAvailable()) {
    log::classify("kw-enrich SKIP cat=\"" + name +
                  "\" (no AI expansion — keeping base count=" + std::to_string(base.size()) + ")");
    if (onEnrichFinished) onEnrichFinished();
    return Status::Ok();
  }
  if (auto all = enrichedTerms(name, source, base)) {
    stored = storeIfCurrent(categoryID, description, *all, computeCentroid(*all, source), context,
                            "kw-enrich");
    if (!stored) return stored.error();
  } else {
    log::classify("kw-enrich SKIP cat=\"" + name +
                  "\" (no AI expansion — keeping base count=" + std::to_string(base.size()) + ")");
  }
  if (onEnrichFinished) onEnrichFinished();
  return Status::Ok();
}

std::optional<std::vector<std::string>> CustomCategoryKeywordBuilder::enrichedTerms(
    const std::string& name, const std::string& source, const std::vector<std::string>& base) {
  std::vector<std::string> all = base;
  for (auto& term : sanitize(model_.expandKeywords(name, source, base))) {
    if (std::find(all.begin(), all.end(), term) == all.end()) all.push_back(std::move(term));
  }
  if (all.size() > base.size()) return all;
  return std::nullopt;
}

Status CustomCategoryKeywordBuilder::healAfterSync(const UUID& categoryID,
                                                   library::ModelContext& context) {
  ASSIGN_OR_RETURN(auto heal, prepareHeal(categoryID, context));
  if (!heal) return Status::Ok();
  computeHeal(*heal);
  return applyHeal(*heal, context);
}

Result<std::optional<CustomCategoryKeywordBuilder::Heal>> CustomCategoryKeywordBuilder::prepareHeal(
    const UUID& categoryID, library::ModelContext& context) {
  auto category = context.fetchByKey<library::CustomCategory>(categoryID.uuidString());
  if (!category) return Err(category.error());
  if (!*category) return std::optional<Heal>();
  auto& c = **category;
  Heal heal;
  heal.categoryID = categoryID;
  heal.name = c.name;
  heal.description = c.categoryDescription.value_or("");
  heal.keywords = sanitize(c.keywords());
  heal.rebuild = heal.keywords.empty();
  if (heal.rebuild) {
    log::classify("kw-heal cat=" + Describe(c) +
                  " synced with no keywords — rebuilding from description");
  } else if (c.embeddingData && !decodeCentroid(*c.embeddingData).empty()) {
    return std::optional<Heal>();
  } else {
    log::classify("kw-heal cat=" + Describe(c) +
                  " synced keywords but no local centroid — computing");
  }
  return std::optional<Heal>(std::move(heal));
}

void CustomCategoryKeywordBuilder::computeHeal(Heal& heal) {
  const std::string source = trimBlanks(heal.description).empty() ? heal.name : heal.description;
  if (heal.rebuild) heal.keywords = extract(source);
  heal.centroid = computeCentroid(heal.keywords, source);
  if (!heal.rebuild) return;
  heal.modelAvailable = model_.isAvailable();
  if (!heal.modelAvailable) return;
  heal.enriched = enrichedTerms(heal.name, source, heal.keywords);
  if (heal.enriched) heal.enrichedCentroid = computeCentroid(*heal.enriched, source);
}

Status CustomCategoryKeywordBuilder::applyHeal(const Heal& heal, library::ModelContext& context) {
  auto stored = storeIfCurrent(heal.categoryID, heal.description, heal.keywords, heal.centroid,
                               context, heal.rebuild ? "kw-build" : "kw-heal");
  if (!stored) return stored.error();
  if (!*stored || !heal.rebuild) return Status::Ok();
  if (heal.enriched) {
    stored = storeIfCurrent(heal.categoryID, heal.description, *heal.enriched,
                            heal.enrichedCentroid, context, "kw-enrich");
    return stored ? Status::Ok() : stored.error();
  }
  log::classify("kw-enrich SKIP cat=\"" + heal.name +
                "\" (no AI expansion — keeping base count=" +
                std::to_string(heal.keywords.size()) + ")");
  return Status::Ok();
}

}  // namespace klipora::intelligence
