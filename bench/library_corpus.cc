#include "library_corpus.h"

#include <algorithm>

namespace klipora::bench {

using library::kAllScreenshotCategories;
using library::ScreenshotItem;

const Date kCorpusNow = Date::fromSecondsSince1970(1'750'000'000);

namespace {

// Real words first (they take the head of the frequency curve), then made-up
// ones for the long tail of names, codes and rare terms.
std::vector<std::string> Vocabulary(std::mt19937& rng) {
  std::vector<std::string> words = {
      "the", "to", "and", "of", "a", "in", "is", "you", "for", "on", "your", "this", "with",
      "file", "edit", "view", "window", "help", "settings", "account", "total", "payment",
      "invoice", "order", "error", "message", "search", "new", "open", "save", "cancel", "ok",
      "email", "password", "user", "name", "date", "time", "price", "amount", "shipping",
      "delivery", "receipt", "card", "bank", "transfer", "meeting", "calendar", "today",
      "tomorrow", "project", "report", "status", "update", "version", "download", "install",
      "share", "comment", "reply", "like", "follow", "profile", "photo", "video", "music",
      "flight", "hotel", "booking", "ticket", "gate", "seat", "function", "return", "const",
      "class", "import", "export", "build", "failed", "warning", "exception", "stack", "trace",
      "café", "naïve", "résumé", "über", "straße", "crème", "jalapeño", "smörgåsbord"};
  const char* syllables[] = {"ka", "lo", "mi", "ne", "ro", "su", "ta", "vi", "pe", "do",
                             "ra", "in", "vo", "ce", "pay", "ment", "ord", "er", "sta", "tus",
                             "bri", "gan", "tel", "mor", "quo", "zen", "fal", "dur"};
  std::uniform_int_distribution<int> pick(0, 27), length(2, 4);
  while (words.size() < 40000) {
    std::string w;
    for (int i = length(rng); i > 0; --i) w += syllables[pick(rng)];
    words.push_back(w);
  }
  std::sort(words.begin() + 100, words.end());
  words.erase(std::unique(words.begin() + 100, words.end()), words.end());
  std::shuffle(words.begin() + 100, words.end(), rng);
  return words;
}

}  // namespace

LibraryCorpus::LibraryCorpus() : words(Vocabulary(rng)) {
  std::vector<double> weights(words.size());
  for (size_t i = 0; i < weights.size(); ++i) weights[i] = 1.0 / static_cast<double>(i + 1);
  zipf = std::discrete_distribution<size_t>(weights.begin(), weights.end());
}

std::string LibraryCorpus::text(int n) {
  std::string out;
  for (int i = 0; i < n; ++i) {
    if (i) out += (i % 12 == 0) ? "\n" : " ";
    out += words[zipf(rng)];
  }
  return out;
}
std::shared_ptr<ScreenshotItem> LibraryCorpus::item(int index) {
  auto item = std::make_shared<ScreenshotItem>();
  std::uniform_real_distribution<double> unit(0, 1);
  item->originalFilename = "Screenshot " + std::to_string(index) + ".png";
  item->importedFilename = item->id.uuidString() + ".png";
  item->libraryPath = "/library/Originals/" + item->importedFilename;
  item->checksum = std::to_string(index);
  item->ocrText = text(std::uniform_int_distribution<int>(150, 400)(rng));
  item->generatedTitle = text(5);
  item->generatedSummary = text(20);
  item->generatedCategory = kAllScreenshotCategories[rng() % kAllScreenshotCategories.size()];
  item->setGeneratedKeywords({words[zipf(rng)], words[zipf(rng)], words[zipf(rng)]});
  std::vector<std::string> chosen;
  for (int t = static_cast<int>(rng() % 3); t > 0; --t) chosen.push_back(tags[rng() % tags.size()]);
  std::sort(chosen.begin(), chosen.end());
  chosen.erase(std::unique(chosen.begin(), chosen.end()), chosen.end());
  item->setUserTags(chosen);
  double age = unit(rng) * 2 * 365 * 86400;
  item->capturedAt = kCorpusNow.addingTimeInterval(-age);
  item->importedAt = kCorpusNow.addingTimeInterval(-age + 5);
  item->favorite = unit(rng) < 0.05;
  item->archived = unit(rng) < 0.03;
  if (unit(rng) < 0.02) {
    item->deleted = true;
    item->deletedAt = kCorpusNow.addingTimeInterval(-unit(rng) * 20 * 86400);
  }
  item->processingStateRaw = "complete";
  item->sourceAppName = "Safari";
  return item;
}

}  // namespace klipora::bench
