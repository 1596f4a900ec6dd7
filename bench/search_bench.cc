// Search over a large library: fills a store with 100,000 items of
// screenshot-like text (a few hundred words each, tags, categories, dates over
// two years), then prints the median and p95 latency of typical queries, the
// same text queries done with LIKE '%word%' as a baseline, and what keeping
// the search index in step costs per batch save of 1,000 items: the save
// itself and the full-text catch-up after it, against a save into a store
// without the index. Then the same for a library of as many items whose text
// is Chinese, Japanese or Korean (terms of 2, 3 and 5 characters), the sizes
// of both indexes in each, and what opening each library costs when its
// index predates the CJK index (search_cjk_bench.h).
//
// Usage: build/bench/search [ITEMS] (default 100000); with KLIPORA_BENCH_KEEP
// set, the stores are left in /tmp. Figures are printed, never asserted.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "library/search_index.h"
#include "library/search_query.h"
#include "bench_stats.h"
#include "library_corpus.h"
#include "search_bench_support.h"
#include "search_cjk_bench.h"
#include "platform/linux/posix_file_system.h"

using namespace klipora;
using namespace klipora::library;
using klipora::bench::LibraryCorpus;

namespace {

using klipora::bench::Mean;
using klipora::bench::Median;
using klipora::bench::OpenStore;
using klipora::bench::P95;
using klipora::bench::Seconds;
using klipora::bench::Sum;

constexpr int kBatch = 1000;
const Date kNow = klipora::bench::kCorpusNow;

// Saves one batch of new items; returns the seconds the save took.
double SaveBatch(ModelContext& context, LibraryCorpus& corpus, int first) {
  for (int i = 0; i < kBatch; ++i) context.insert(corpus.item(first + i));
  return klipora::bench::TimedSave(context);
}

int64_t Count(Database& db, const std::string& sql, const std::vector<SqlValue>& args = {}) {
  auto rows = db.query(sql, args);
  return rows ? std::get<int64_t>((*rows)[0][0]) : -1;
}

}  // namespace

int main(int argc, char** argv) {
  const int items = argc > 1 ? std::atoi(argv[1]) : 100000;
  char folder[] = "/tmp/klipora-search-bench-XXXXXX";
  if (!mkdtemp(folder)) return 1;
  const std::string dir = folder;

  // 1. The library, filled with batches of new items, each followed by the
  // catch-up of the full-text index that the next search would run. Beside
  // it, a store without anything the search adds to the schema (triggers,
  // full-text index, the grid's date-ordered partial indexes) gets the same
  // items, its saves taken in turn with the library's, so that both are
  // measured at the same sizes and under the same load on the machine. Means,
  // not medians: the index merges its segments only now and then, and that
  // work is part of what it costs. The items' dates are spread at random, so
  // every save writes all over the grid's date index, as an import of an old
  // folder would; screenshots saved as they are taken only add to its end.
  LibraryCorpus corpus;
  LibraryCorpus plainCorpus;  // the same seed: the same items
  auto context = OpenStore(dir + "/Klipora.store");
  Database& db = context->database();
  auto plain = OpenStore(dir + "/plain.store");
  if (!plain->database().exec("DROP TRIGGER ScreenshotSearch_afterUpdate; DROP TRIGGER "
                              "ScreenshotSearch_afterDelete; DROP TABLE ScreenshotSearch; "
                              "DROP INDEX ScreenshotItem_visibleByDate; "
                              "DROP INDEX ScreenshotItem_trashByDate").ok()) {
    return 1;
  }
  std::vector<double> withIndex, without, catchUps;
  for (int filled = 0; filled < items; filled += kBatch) {
    if ((filled / kBatch) % 2 == 0) without.push_back(SaveBatch(*plain, plainCorpus, filled));
    withIndex.push_back(SaveBatch(*context, corpus, filled));
    double start = Seconds();
    if (!SearchIndex::catchUp(db)) return 1;
    catchUps.push_back(Seconds() - start);
    if ((filled / kBatch) % 2 == 1) without.push_back(SaveBatch(*plain, plainCorpus, filled));
  }
  plain.reset();
  double fill = Sum(withIndex) + Sum(catchUps);
  (void)db.exec("ANALYZE");

  std::printf("Library: %d items, filled in %.1f s (store in %s)\n\n", items, fill, dir.c_str());
  const double plainSave = Mean(without), indexedSave = Mean(withIndex);
  const double indexing = Mean(catchUps);
  const double total = indexedSave - plainSave + indexing;
  std::printf("Batch save of %d new items (mean of %zu, the two stores saved in turn):\n", kBatch,
              withIndex.size());
  std::printf("  without the search index   %7.1f ms\n", plainSave * 1000);
  std::printf("  with the search index      %7.1f ms  (+%.1f %%)\n", indexedSave * 1000,
              (indexedSave / plainSave - 1) * 100);
  std::printf("  full-text indexing of them %7.1f ms  (catch-up after each save, with merges)\n",
              indexing * 1000);
  std::printf("  index maintenance in all   %7.1f ms  (+%.1f %% of the save without the index)\n\n",
              total * 1000, total / plainSave * 100);

  // 2. Queries.
  auto df = [&](const std::string& word) {
    return Count(db, "SELECT count(*) FROM ScreenshotSearch WHERE ScreenshotSearch MATCH ?",
                 {"\"" + word + "\""});
  };
  std::string rare, common;
  int64_t rareDF = 0, commonDF = 0;
  for (size_t i = 20000; i < corpus.words.size() && rare.empty(); i += 7) {
    int64_t n = df(corpus.words[i]);
    if (n >= 20 && n <= 200) rare = corpus.words[i], rareDF = n;
  }
  for (size_t i = 0; i < 100 && common.empty(); ++i) {
    int64_t n = df(corpus.words[i]);
    if (n > items * 4 / 10 && n < items * 7 / 10) common = corpus.words[i], commonDF = n;
  }
  std::string prefix = corpus.words[30].substr(0, 3) + " " + corpus.words[60].substr(0, 3);
  std::string mixed = corpus.words[45] + " tag:work date:week";
  std::printf("Words: rare \"%s\" in %lld items, common \"%s\" in %lld items\n\n", rare.c_str(),
              static_cast<long long>(rareDF), common.c_str(), static_cast<long long>(commonDF));

  struct Case {
    const char* label;
    LibraryQuery query;
    std::string likeWord;  // empty: no LIKE form
    bool likeTagAndWeek = false;
  };
  using Kind = SidebarSelection::Kind;
  std::vector<Case> cases = {
      {"rare word", {.searchText = rare}, rare},
      {"common word", {.searchText = common}, common},
      {"first two letters", {.searchText = corpus.words[30].substr(0, 2)}, ""},
      {"two-word prefix", {.searchText = prefix}, ""},
      {"text + tag: + date:week", {.searchText = mixed}, corpus.words[45], true},
      {"trash view", {.selection = SidebarSelection::fixed(Kind::trash)}, ""},
      {"all, newest first (page 1)", {}, ""},
  };
  std::printf("%-28s %8s %8s %6s | %10s %10s %7s\n", "query (200 per page)", "median", "p95",
              "items", "LIKE med", "LIKE p95", "ratio");
  for (auto& c : cases) {
    std::vector<double> times;
    size_t found = 0;
    bool ranked = false;
    for (int run = 0; run < 40; ++run) {
      double start = Seconds();
      auto result = LibrarySearch::run(*context, c.query, kNow);
      times.push_back(Seconds() - start);
      if (!result) {
        std::fprintf(stderr, "%s failed: %s\n", c.label, result.error().message().c_str());
        return 1;
      }
      found = result->items.size();
      ranked = result->rankedByRelevance;
    }
    std::printf("%-28s %6.2fms %6.2fms %6zu%s", c.label, Median(times) * 1000, P95(times) * 1000,
                found, ranked ? "r" : " ");
    if (c.likeWord.empty()) {
      std::printf("|\n");
      continue;
    }
    std::string sql = "SELECT id FROM ScreenshotItem WHERE deleted = 0 AND deletedAt IS NULL AND "
                      "archived = 0 AND (ocrText LIKE ? OR generatedTitle LIKE ? OR userTagsRaw "
                      "LIKE ?)";
    const std::string pattern = "%" + c.likeWord + "%";
    std::vector<SqlValue> args = {pattern, pattern, pattern};
    if (c.likeTagAndWeek) {
      // The week's start is written into the SQL, so every argument is text.
      sql += " AND userTagsRaw LIKE '%work%' AND coalesce(capturedAt, importedAt) >= " +
             std::to_string(kNow.addingTimeInterval(-7 * 86400).timeIntervalSince1970());
    }
    sql += " ORDER BY coalesce(capturedAt, importedAt) DESC LIMIT 200";
    std::vector<double> like;
    for (int run = 0; run < 7; ++run) {
      double start = Seconds();
      auto rows = db.query(sql, args);
      like.push_back(Seconds() - start);
      if (!rows) return 1;
    }
    std::printf("| %8.1fms %8.1fms %6.0fx\n", Median(like) * 1000, P95(like) * 1000,
                Median(like) / Median(times));
  }
  std::printf("\n(r: ranked by relevance; otherwise in the sort order)\n");

  // 3. The same searches over Chinese, Japanese and Korean text, and what
  // the second index costs.
  auto cjk = klipora::bench::MeasureCjkLibrary(items, dir, indexing * 1000);
  std::printf("\nIndex sizes:\n");
  klipora::bench::PrintIndexSizes(*context, "Latin library");
  klipora::bench::PrintIndexSizes(*cjk, "CJK library");
  std::printf("\nOpening a library whose index predates the CJK index:\n");
  klipora::bench::MeasureUpgrade(*context, "Latin library");
  klipora::bench::MeasureUpgrade(*cjk, "CJK library");
  cjk.reset();
  context.reset();
  if (std::getenv("KLIPORA_BENCH_KEEP")) return 0;
  std::string cleanup = "rm -rf '" + dir + "'";
  return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
