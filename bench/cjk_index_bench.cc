// Which full-text index finds Chinese, Japanese and Korean text by any run of
// its characters, measured on the same texts in one run:
//
//  - trigram: SQLite's own "trigram" tokenizer over the folded CJK runs of
//    each text (blanks between characters dropped, each run closed by a
//    separator so that its last pair of characters still begins a trigram).
//    Terms of three characters or more are phrases of trigrams; a term of two
//    characters has no trigram of its own, so it is looked up as every
//    indexed trigram that begins with it (a range of the term list) and
//    matched as their OR.
//  - bigram: the library's own tokenizer ("klipora_cjk", search_cjk.h): each
//    run as its overlapping pairs of characters; every term is a phrase of
//    its pairs.
//
// Both tables are contentless (the library keeps the text in the items), so
// the store size is the index alone. Prints the fill time, the size, and the
// median and p95 latency of fetching every match of 2-, 3- and 5-character
// terms cut from the texts.
//
// Usage: build/bench/cjk_index [ITEMS] (default 100000). Figures are
// printed, never asserted.
#include <sqlite3.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_stats.h"
#include "cjk_corpus.h"
#include "library/database.h"
#include "library/search_cjk.h"
#include "library/search_text.h"

using namespace klipora;
using namespace klipora::library;

namespace {

using klipora::bench::Median;
using klipora::bench::P95;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}


// The text the trigram table indexes: the folded runs, each closed by U+0001.
std::string TrigramText(const std::string& text) {
  std::string out;
  for (const CjkRun& run : cjkRuns(text)) out += toUtf8(run.characters) + "\x01";
  return out;
}

void Die(const std::string& what) {
  std::fprintf(stderr, "cjk_index: %s\n", what.c_str());
  std::exit(1);
}

struct Store {
  std::unique_ptr<Database> db;
  std::string path;
  double fillSeconds = 0;

  int64_t bytes() {
    auto rows = db->query("SELECT page_count * page_size FROM pragma_page_count, pragma_page_size");
    return rows ? std::get<int64_t>((*rows)[0][0]) : -1;
  }
  std::vector<int64_t> match(const std::string& expression) {
    auto rows = db->query("SELECT rowid FROM t WHERE t MATCH ?", {expression});
    if (!rows) Die(rows.error().message());
    std::vector<int64_t> out;
    for (const auto& row : *rows) out.push_back(std::get<int64_t>(row[0]));
    return out;
  }
};

// CPU time of this thread: the machine may be shared, and the fill is all
// computation on this thread.
double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

Store Open(const std::string& path, const std::string& tokenizer) {
  Store store;
  store.path = path;
  auto db = Database::open(path);
  if (!db) Die(db.error().message());
  store.db = std::move(*db);
  if (!store.db
           ->exec("CREATE VIRTUAL TABLE t USING fts5(body, content='', tokenize='" + tokenizer +
                  "');"
                  "INSERT INTO t(t, rank) VALUES('hashsize', 4194304);"
                  "INSERT INTO t(t, rank) VALUES('automerge', 8)")
           .ok()) {
    Die("cannot create the " + tokenizer + " table");
  }
  return store;
}

// One transaction of texts [from, to); adds its CPU time to the store's.
void AddBatch(Store& store, bool trigram, const std::vector<std::string>& texts, size_t from,
              size_t to) {
  Database& d = *store.db;
  double start = CpuSeconds();
  if (!d.exec("BEGIN").ok()) Die("begin");
  for (size_t i = from; i < to; ++i) {
    auto n = d.execute("INSERT INTO t(rowid, body) VALUES (?, ?)",
                       {SqlValue(static_cast<int64_t>(i + 1)),
                        SqlValue(trigram ? TrigramText(texts[i]) : texts[i])});
    if (!n) Die(n.error().message());
  }
  if (!d.exec("COMMIT").ok()) Die("commit");
  store.fillSeconds += CpuSeconds() - start;
}

// A two-character term in the trigram table: every trigram that begins with it.
std::string TrigramPairExpression(Store& store, const std::string& pair) {
  auto rows = store.db->query(
      "SELECT term FROM temp.v WHERE term >= ? AND term < ?",
      {SqlValue(pair), SqlValue(pair + "\xF4\x8F\xBF\xBF")});
  if (!rows) Die(rows.error().message());
  std::string out;
  for (const auto& row : *rows) {
    out += (out.empty() ? "\"" : " OR \"") + std::get<std::string>(row[0]) + "\"";
  }
  return out.empty() ? "\"" + pair + "\"" : out;
}

}  // namespace

int main(int argc, char** argv) {
  const int items = argc > 1 ? std::atoi(argv[1]) : 100000;
  char folder[] = "/tmp/klipora-cjk-index-bench-XXXXXX";
  if (!mkdtemp(folder)) return 1;
  const std::string dir = folder;

  bench::CjkCorpus corpus(20261125);
  std::vector<std::string> texts;
  std::uniform_int_distribution<int> length(150, 400);
  std::mt19937 rng(7);
  size_t characters = 0;
  for (int i = 0; i < items; ++i) {
    texts.push_back(corpus.text(length(rng)));
    characters += texts.back().size() / 3;
  }
  std::printf("%d texts in Chinese, Japanese and Korean, about %zu characters each\n\n", items,
              characters / static_cast<size_t>(items));

  // Batch by batch in turn, so both are filled under the same load.
  Store trigram = Open(dir + "/trigram.db", "trigram");
  Store bigram = Open(dir + "/bigram.db", kCjkTokenizer);
  for (size_t at = 0; at < texts.size(); at += 1000) {
    const size_t to = std::min(texts.size(), at + 1000);
    AddBatch(trigram, true, texts, at, to);
    AddBatch(bigram, false, texts, at, to);
  }
  if (!trigram.db->exec("CREATE VIRTUAL TABLE temp.v USING fts5vocab(main, 't', 'row')").ok()) {
    Die("cannot read the trigram terms");
  }

  std::printf("%-28s %12s %12s\n", "", "trigram", "bigram");
  std::printf("%-28s %10.1f s %10.1f s\n", "fill, CPU (1,000 a batch)", trigram.fillSeconds,
              bigram.fillSeconds);
  std::printf("%-28s %9.1f MB %9.1f MB\n\n", "index size", trigram.bytes() / 1e6,
              bigram.bytes() / 1e6);

  std::printf("%-12s %-8s %9s %9s %9s | %9s %9s %9s\n", "term", "", "median", "p95", "matches",
              "median", "p95", "matches");
  for (int n : {2, 3, 5}) {
    std::vector<std::string> terms = corpus.terms(texts, n, 60);
    std::vector<double> tTimes, bTimes;
    double tFound = 0, bFound = 0;
    size_t differ = 0;
    for (const std::string& term : terms) {
      double start = Seconds();
      const std::string expression = n == 2 ? TrigramPairExpression(trigram, term) : "\"" + term + "\"";
      auto t = trigram.match(expression);
      tTimes.push_back(Seconds() - start);
      start = Seconds();
      auto b = bigram.match("\"" + term + "\"");
      bTimes.push_back(Seconds() - start);
      tFound += static_cast<double>(t.size());
      bFound += static_cast<double>(b.size());
      differ += t != b;
    }
    const double count = static_cast<double>(terms.size());
    std::printf("%d characters %-8s %7.2fms %7.2fms %9.0f | %7.2fms %7.2fms %9.0f%s\n", n, "",
                Median(tTimes) * 1000, P95(tTimes) * 1000, tFound / count, Median(bTimes) * 1000,
                P95(bTimes) * 1000, bFound / count,
                differ ? "  (the two found different items!)" : "");
  }
  std::printf("\n(%s: each of 60 terms per length fetches every matching row)\n", "latency");
  trigram.db.reset();
  bigram.db.reset();
  if (std::getenv("KLIPORA_BENCH_KEEP")) return 0;
  std::string cleanup = "rm -rf '" + dir + "'";
  return std::system(cleanup.c_str()) == 0 ? 0 : 1;
}
