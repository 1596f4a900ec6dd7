// What the search benchmarks share: the clock, means, opening a store with
// the library's schema, saving a batch, and the size of the index's tables.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "library/model_container.h"
#include "library/model_context.h"

namespace klipora::bench {

inline double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

inline double Sum(const std::vector<double>& v) {
  double sum = 0;
  for (double x : v) sum += x;
  return sum;
}

inline double Mean(const std::vector<double>& v) {
  return v.empty() ? 0 : Sum(v) / static_cast<double>(v.size());
}

inline std::unique_ptr<library::ModelContext> OpenStore(const std::string& path) {
  auto db = library::Database::open(path);
  if (!db || !library::migrateToCurrentSchema(**db).ok()) {
    std::fprintf(stderr, "cannot open %s\n", path.c_str());
    std::exit(1);
  }
  return std::make_unique<library::ModelContext>(std::move(*db));
}

// Saves what was inserted into `context`; returns the seconds the save took.
inline double TimedSave(library::ModelContext& context) {
  double start = Seconds();
  if (Status s = context.save(); !s.ok()) {
    std::fprintf(stderr, "save failed: %s\n", s.message().c_str());
    std::exit(1);
  }
  return Seconds() - start;
}

// Bytes of the store's tables whose names match the LIKE `pattern` (escape
// character \), or of the whole store when it is empty.
inline double StoreMegabytes(library::Database& db, const std::string& pattern = "") {
  auto rows = pattern.empty() ? db.query(
                                    "SELECT page_count * page_size FROM pragma_page_count, "
                                    "pragma_page_size")
                              : db.query(
                                    "SELECT coalesce(sum(pgsize), 0) FROM dbstat WHERE name LIKE ? "
                                    "ESCAPE '\\'",
                                    {library::SqlValue(pattern)});
  return rows ? static_cast<double>(std::get<int64_t>((*rows)[0][0])) / 1e6 : -1;
}

}  // namespace klipora::bench
