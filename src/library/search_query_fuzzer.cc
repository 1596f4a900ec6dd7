// Feeds arbitrary text to the search field: the token parser and the whole
// library query over a small real store. Neither may crash, and the query may
// never fail because of what was typed.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "library/model_container.h"
#include "library/search_query.h"

namespace {

klipora::library::ModelContext& Store() {
  static auto* context = [] {
    using namespace klipora::library;
    auto db = Database::open(":memory:");
    if (!db || !migrateToCurrentSchema(**db).ok()) std::abort();
    auto* c = new ModelContext(std::move(*db));
    const char* texts[] = {"invoice \"total\" (42) NEAR the end", "café crème — déjà vu",
                           "e-mail: someone@example.com * - AND OR NOT"};
    for (const char* text : texts) {
      auto item = std::make_shared<ScreenshotItem>();
      item->ocrText = text;
      item->userTagsRaw = std::string("Work") + kListSeparator + "a b";
      c->insert(item);
    }
    if (!c->save().ok()) std::abort();
    return c;
  }();
  return *context;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  klipora::library::LibraryQuery q;
  q.searchText = text;
  auto result = klipora::library::LibrarySearch::run(
      Store(), q, klipora::Date::fromSecondsSince1970(1'750'000'000));
  if (!result) {
    std::fprintf(stderr, "query failed for %zu bytes: %s\n", size,
                 result.error().message().c_str());
    std::abort();
  }
  return 0;
}
