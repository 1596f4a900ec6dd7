// What the crash trials check in a library after the restart: every source
// file in exactly one item, every record with its copy, no file that no
// record names, a sound store, what was printed saved, and (for trials that
// process) no item left unfinished.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

namespace klipora::crash {

struct Totals {
  int trials = 0, lost = 0, duplicated = 0, orphaned = 0, crashed = 0, sanitizer = 0,
      unsavedPrinted = 0, corrupt = 0, unfinished = 0;
  int problems() const;
  std::string line() const;
};

struct Expected {
  std::map<std::string, std::string> checksumOf;  // source path -> checksum
  std::set<std::string> printed;                  // ids the killed run printed
};

// The item ids in an import's output ("<36-character id>  <path>" lines).
std::set<std::string> printedIds(const std::string& out);

// Items of the store under `home` whose processing has not ended; -1 when the
// store cannot be read.
int unfinishedItems(const std::string& home);

// Checks the library under `home`, counts into `totals` and returns one line
// per problem.
std::vector<std::string> checkLibrary(const std::string& home, const Expected& expected,
                                      bool processed, Totals& totals);

}  // namespace klipora::crash
