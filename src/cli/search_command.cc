// klipora search: the library query from the command line.
#include "cli/search_command.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/record_json.h"

namespace klipora::cli {
namespace {

template <typename E>
std::optional<E> ParseEnum(const std::string& text, const char* what) {
  if (auto value = library::fromRaw<E>(text)) return value;
  std::string known;
  for (const auto& c : library::EnumTraits<E>::cases()) {
    known += (known.empty() ? "" : ", ") + std::string(c.raw);
  }
  std::cerr << "klipora: \"" << text << "\" is not a " << what << " (one of " << known << ")\n";
  return std::nullopt;
}

std::string ItemDate(const library::ScreenshotItem& item) {
  return formatISO8601(item.capturedAt.value_or(item.importedAt)).substr(0, 10);
}

int RunSearch(CliSession& session, const std::vector<std::string>& words, bool json,
              const std::string& in, const std::string& sort, const std::string& date,
              const std::string& from, const std::string& to, int64_t limit, int64_t offset) {
  library::LibraryQuery q;
  for (const auto& w : words) q.searchText += (q.searchText.empty() ? "" : " ") + w;
  auto selection = parseSelectionOption(in);
  if (!selection) return kExitUsage;
  q.selection = *selection;
  if (!sort.empty()) {
    auto mode = parseSortOption(sort);
    if (!mode) return kExitUsage;
    q.sortMode = *mode;
    q.rankByRelevance = false;  // an explicit order wins over relevance
  }
  auto preset = parseDateOption(date);
  if (!preset) return kExitUsage;
  q.datePreset = *preset;
  if (!from.empty() || !to.empty()) {
    q.datePreset = library::DateFilterPreset::custom;
    if (!from.empty() && !(q.customStart = parseDayOption(from))) return kExitUsage;
    if (!to.empty() && !(q.customEnd = parseDayOption(to))) return kExitUsage;
  }
  if (limit <= 0 || offset < 0) {
    std::cerr << "klipora: --limit must be positive and --offset not negative\n";
    return kExitUsage;
  }
  q.limit = limit;
  q.offset = offset;
  if (!session.openLibrary()) return session.exitCode;
  q.showArchivedInSearch = session.settings().showArchivedInSearch;
  auto result = library::LibrarySearch::run(session.context(), q, session.platform().clock.now());
  if (!result) {
    std::cerr << "klipora: search failed: " << result.error().message() << "\n";
    return kExitFailure;
  }
  printSearchResult(*result, json);
  return kExitOk;
}

}  // namespace

std::optional<library::SortMode> parseSortOption(const std::string& text) {
  return ParseEnum<library::SortMode>(text, "sort mode");
}

std::optional<library::DateFilterPreset> parseDateOption(const std::string& text) {
  return ParseEnum<library::DateFilterPreset>(text, "date filter");
}

std::optional<Date> parseDayOption(const std::string& text) {
  if (text.size() == 10 && text[4] == '-' && text[7] == '-') {
    std::string exif = text.substr(0, 4) + ":" + text.substr(5, 2) + ":" + text.substr(8, 2) +
                       " 00:00:00";
    if (auto day = parseExifDate(exif)) return day;
  } else if (auto date = parseISO8601(text)) {
    return date;
  }
  std::cerr << "klipora: \"" << text << "\" is not a date (YYYY-MM-DD or ISO 8601)\n";
  return std::nullopt;
}

std::optional<library::SidebarSelection> parseSelectionOption(const std::string& text) {
  if (auto selection = library::SidebarSelection::fromID(text)) return selection;
  std::cerr << "klipora: \"" << text
            << "\" names no view; use all, today, thisWeek, favorites, recentlyShared, "
               "needsReview, processingFailed, uncategorized, archived, trash, "
               "category:<raw value>, customCategory:<id>, tag:<name> or savedSearch:<id>\n";
  return std::nullopt;
}

void printSearchResult(const library::LibrarySearchResult& result, bool json) {
  const auto& p = result.parsed;
  if (json) {
    library::Json query = library::Json::object();
    query["freeText"] = p.freeText.empty() ? library::Json() : library::Json(p.freeText);
    query["tags"] = p.tags;
    query["categories"] = p.categories;
    query["favorite"] = p.favorite ? library::Json(*p.favorite) : library::Json();
    query["date"] = p.date ? library::Json(std::string(library::rawValue(*p.date)))
                           : library::Json();
    library::Json out = library::Json::object();
    out["query"] = query;
    out["rankedByRelevance"] = result.rankedByRelevance;
    out["items"] = library::Json::array();
    for (const auto& item : result.items) out["items"].push_back(library::recordToJson(*item));
    printJson(out);
    return;
  }
  for (const auto& item : result.items) {
    std::cout << item->id.uuidString() << "  " << ItemDate(*item) << "  "
              << library::rawValue(item->effectiveCategory()) << "  " << item->displayTitle()
              << "\n";
  }
  if (result.items.empty()) std::cerr << "No items match.\n";
}

KLIPORA_COMMAND(search) {
  auto* cmd = app.add_subcommand("search", "Search the library (free text and tag:, cat:, fav:, "
                                           "date: tokens)");
  auto words = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto in = std::make_shared<std::string>("all");
  auto sort = std::make_shared<std::string>();
  auto date = std::make_shared<std::string>("all");
  auto from = std::make_shared<std::string>();
  auto to = std::make_shared<std::string>();
  auto limit = std::make_shared<int64_t>(200);
  auto offset = std::make_shared<int64_t>(0);
  cmd->add_option("query", *words, "What to look for, e.g. \"invoice tag:work date:week\"");
  cmd->add_flag("--json", *json, "Print the parsed query and the items as JSON");
  cmd->add_option("--in", *in, "The view to search: all (default), trash, tag:<name>, …");
  cmd->add_option("--sort", *sort,
                  "newestFirst, oldestFirst, mostViewed or recentlyProcessed (default: by "
                  "relevance, then newest first)");
  cmd->add_option("--date", *date, "all, today, yesterday, last7Days, last30Days, thisMonth, "
                                   "lastMonth");
  cmd->add_option("--from", *from, "Start of a custom date range (YYYY-MM-DD)");
  cmd->add_option("--to", *to, "End of a custom date range, exclusive (YYYY-MM-DD)");
  cmd->add_option("--limit", *limit, "Items per page (default 200)");
  cmd->add_option("--offset", *offset, "Items to skip");
  cmd->callback([&session, words, json, in, sort, date, from, to, limit, offset] {
    session.exitCode =
        RunSearch(session, *words, *json, *in, *sort, *date, *from, *to, *limit, *offset);
  });
}

}  // namespace klipora::cli
