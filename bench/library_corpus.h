// Items of a large library, made through the store rather than by importing
// images: screenshot-like text of a few hundred words drawn from a Zipf curve
// over real and made-up words, tags, categories, dates spread over two years,
// a few favourites, archived and trashed items. The same seed gives the same
// items.
#pragma once

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "library/screenshot_item.h"

namespace klipora::bench {

// The moment the items' dates count back from.
extern const Date kCorpusNow;

struct LibraryCorpus {
  LibraryCorpus();
  std::string text(int words);
  std::shared_ptr<library::ScreenshotItem> item(int index);

  std::mt19937 rng{20261122};
  std::vector<std::string> words;
  std::discrete_distribution<size_t> zipf;
  std::vector<std::string> tags = {"Work",    "Home",   "Taxes 2024", "Project Atlas", "Urgent",
                                   "Receipts", "Ideas", "Design",     "Bugs",          "Travel"};
};

}  // namespace klipora::bench
