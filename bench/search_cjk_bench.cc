#include "search_cjk_bench.h"

#include <sqlite3.h>
#include <time.h>

#include <random>

#include "bench_stats.h"
#include "cjk_corpus.h"
#include "library/search_index.h"
#include "library/search_query.h"
#include "library_corpus.h"
#include "search_bench_support.h"

namespace klipora::bench {
namespace {

using library::Database;
using library::LibraryQuery;
using library::LibrarySearch;
using library::ModelContext;

constexpr int kBatch = 1000;

void Exec(Database& db, const std::string& sql) {
  if (Status s = db.exec(sql); !s.ok()) {
    std::fprintf(stderr, "%s: %s\n", sql.c_str(), s.message().c_str());
    std::exit(1);
  }
}

// Seconds of `work`, and the peak of SQLite's memory above what it held
// before, in MB.
template <typename Work>
std::pair<double, double> Timed(Work work) {
  const double before = static_cast<double>(sqlite3_memory_used());
  sqlite3_memory_highwater(1);
  double start = Seconds();
  work();
  double seconds = Seconds() - start;
  return {seconds, (static_cast<double>(sqlite3_memory_highwater(1)) - before) / 1e6};
}

// CPU time of this thread: a search runs on the caller's thread, and on a
// shared machine its wall time also counts the time others held the cores.
double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

void PrintSizes(Database& db, const char* label) {
  std::printf("  %-22s words index %6.1f MB, CJK index %6.1f MB, store %7.1f MB\n", label,
              StoreMegabytes(db, "ScreenshotSearch\\_%"),
              StoreMegabytes(db, "ScreenshotSearchCJK%"), StoreMegabytes(db));
}

}  // namespace

std::unique_ptr<ModelContext> MeasureCjkLibrary(int items, const std::string& dir,
                                                double latinCatchUpMs) {
  LibraryCorpus corpus;
  CjkCorpus cjk(20261125);
  std::mt19937 rng(7);
  std::uniform_int_distribution<int> length(150, 400);
  auto context = OpenStore(dir + "/cjk.store");
  Database& db = context->database();
  std::vector<std::string> sample;  // texts the query terms are cut from
  std::vector<double> saves, catchUps;
  size_t characters = 0;
  for (int filled = 0; filled < items; filled += kBatch) {
    for (int i = 0; i < kBatch; ++i) {
      auto item = corpus.item(filled + i);
      item->ocrText = cjk.text(length(rng));
      characters += item->ocrText->size() / 3;
      if (i % 50 == 0) sample.push_back(*item->ocrText);
      context->insert(item);
    }
    saves.push_back(TimedSave(*context));
    double start = Seconds();
    if (!library::SearchIndex::catchUp(db)) std::exit(1);
    catchUps.push_back(Seconds() - start);
  }
  Exec(db, "ANALYZE");

  std::printf(
      "\nCJK library: %d items, recognised text of about %zu characters of Chinese, "
      "Japanese or Korean each\n(titles, tags and the rest as in the Latin library)\n\n",
      items, characters / static_cast<size_t>(items));
  std::printf("Batch save of %d new items (mean of %zu):\n", kBatch, saves.size());
  std::printf("  save                       %7.1f ms\n", Mean(saves) * 1000);
  std::printf(
      "  full-text indexing of them %7.1f ms  (both indexes; %.1f ms in the Latin "
      "library)\n\n",
      Mean(catchUps) * 1000, latinCatchUpMs);

  std::printf("%-28s %8s %8s %6s | %8s %8s\n", "CJK query (200 per page)", "median", "p95", "items",
              "CPU med", "CPU p95");
  auto measure = [&](const std::string& label, const std::vector<std::string>& texts) {
    std::vector<double> times, cpu;
    double found = 0;
    for (int round = 0; round < 2; ++round) {
      for (const std::string& text : texts) {
        double start = Seconds(), startCpu = ThreadCpuSeconds();
        auto result = LibrarySearch::run(*context, LibraryQuery{.searchText = text}, kCorpusNow);
        times.push_back(Seconds() - start);
        cpu.push_back(ThreadCpuSeconds() - startCpu);
        if (!result) {
          std::fprintf(stderr, "%s failed: %s\n", text.c_str(), result.error().message().c_str());
          std::exit(1);
        }
        if (round == 0) found += static_cast<double>(result->items.size());
      }
    }
    std::printf("%-28s %6.2fms %6.2fms %6.0f | %6.2fms %6.2fms\n", label.c_str(),
                Median(times) * 1000, P95(times) * 1000, found / static_cast<double>(texts.size()),
                Median(cpu) * 1000, P95(cpu) * 1000);
  };
  for (int n : {2, 3, 5}) {
    measure(std::to_string(n) + " characters", cjk.terms(sample, n, 60));
  }
  std::vector<std::string> mixed;
  for (const std::string& term : cjk.terms(sample, 2, 60)) {
    mixed.push_back(term + " " + corpus.words[45] + " tag:work");
  }
  measure("2 characters + word + tag:", mixed);
  std::printf(
      "\n(each of 60 terms per row run twice; items: the mean of the first page; CPU: "
      "this thread's CPU time, what the latency is on an idle machine)\n");
  return context;
}

void MeasureUpgrade(ModelContext& library, const char* label) {
  Database& db = library.database();
  // The older index: the first table filled from the text as it stands, and
  // a second table over every item. Timing each fill is timing what the
  // older opening did.
  Exec(db,
       "DROP TABLE ScreenshotSearchCJK; DROP VIEW ScreenshotSearchCJKSource; "
       "DROP VIEW ScreenshotSearchSource; "
       "CREATE VIEW ScreenshotSearchSource AS SELECT * FROM ScreenshotSearchText");
  auto words =
      Timed([&] { Exec(db, "INSERT INTO ScreenshotSearch(ScreenshotSearch) VALUES('rebuild')"); });
  auto cjk = Timed([&] {
    Exec(db,
         "CREATE VIRTUAL TABLE OlderCJK USING fts5(title, filename, body, details, tags, "
         "keywords, category, app, content='ScreenshotSearchSource', content_rowid='rowid', "
         "tokenize='klipora_cjk');"
         "INSERT INTO OlderCJK(OlderCJK, rank) VALUES('hashsize', 4194304);"
         "INSERT INTO OlderCJK(OlderCJK) VALUES('rebuild')");
  });
  Exec(db, "DROP TABLE OlderCJK; UPDATE ScreenshotSearchState SET version = 3");
  auto now = Timed([&] {
    if (Status s = library::migrateToCurrentSchema(db); !s.ok()) {
      std::fprintf(stderr, "opening failed: %s\n", s.message().c_str());
      std::exit(1);
    }
  });
  auto items = db.query("SELECT count(*) FROM ScreenshotItem");
  const double thousands =
      items ? static_cast<double>(std::get<int64_t>((*items)[0][0])) / 1000 : 1;
  std::printf(
      "  %-22s before: rebuild %6.1f s (%5.0f ms per 1,000 items; words %.1f s, CJK "
      "%.1f s), SQLite peak %5.1f MB\n",
      label, words.first + cjk.first, (words.first + cjk.first) * 1000 / thousands, words.first,
      cjk.first, std::max(words.second, cjk.second));
  std::printf(
      "  %-22s now:    in place %5.2f s (%5.0f ms per 1,000 items), SQLite peak %5.1f "
      "MB\n",
      "", now.first, now.first * 1000 / thousands, now.second);
}

void PrintIndexSizes(ModelContext& library, const char* label) {
  PrintSizes(library.database(), label);
}

}  // namespace klipora::bench
