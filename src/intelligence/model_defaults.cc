// The arbiter and the matcher of a machine without a model and a library
// without user categories.
#include "intelligence/custom_category_matcher.h"
#include "intelligence/model_arbiter.h"

namespace klipora::intelligence {
namespace {

class UnavailableModelArbiter final : public ModelArbiter {
 public:
  bool isAvailable() override { return false; }
  void warmUp(bool) override {}
  std::optional<BuiltinArbitration> arbitrate(const ArbitrationInput&) override {
    return std::nullopt;
  }
  std::optional<CombinedArbitration> arbitrateAndMatchCustom(
      const ArbitrationInput&, const std::vector<CustomCategoryDescriptor>&) override {
    return std::nullopt;
  }
  std::optional<std::string> cleanTitle(const std::string&) override { return std::nullopt; }
};

class NoCustomCategoryMatcher final : public CustomCategoryMatcher {
 public:
  std::vector<CustomCategoryDescriptor> categories() override { return {}; }
  void markStale() override {}
  std::optional<CustomMatch> match(const CustomMatchInput&) override { return std::nullopt; }
};

}  // namespace

std::unique_ptr<ModelArbiter> makeUnavailableModelArbiter() {
  return std::make_unique<UnavailableModelArbiter>();
}

std::unique_ptr<CustomCategoryMatcher> makeNoCustomCategoryMatcher() {
  return std::make_unique<NoCustomCategoryMatcher>();
}

}  // namespace klipora::intelligence
