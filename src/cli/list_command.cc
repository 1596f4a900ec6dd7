// klipora list / klipora show ID: the items of the library.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <optional>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/record_json.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

using library::ScreenshotItem;
using library::SqlValue;

constexpr int64_t kDefaultPage = 50;
// Items read at a time by --all, so memory stays flat however many there are.
constexpr int64_t kChunk = 500;

struct ListOptions {
  bool json = false;
  bool includeTrash = false;
  bool all = false;
  int64_t limit = kDefaultPage;
  int64_t offset = 0;
};

// Where the last chunk ended, in the list's order (newest import first).
struct Position {
  SqlValue importedAt;
  int64_t rowid = 0;
};

// The rowids of the next `count` items after `after` (or after skipping
// `offset`), walked backwards along the importedAt index.
Result<std::vector<Position>> NextKeys(library::Database& db, const ListOptions& o,
                                               const std::optional<Position>& after,
                                               int64_t count) {
  std::string sql = "SELECT importedAt, rowid FROM ScreenshotItem WHERE ";
  std::vector<SqlValue> args;
  // likely(): nearly every item is outside the trash, which keeps SQLite from
  // preferring the deletedAt index to the date order.
  sql += o.includeTrash ? "1" : "deleted = 0 AND likely(deletedAt IS NULL)";
  if (after) {
    sql += " AND (importedAt, rowid) < (?, ?)";
    args = {after->importedAt, SqlValue(after->rowid)};
  }
  sql += " ORDER BY importedAt DESC, rowid DESC LIMIT ? OFFSET ?";
  args.push_back(SqlValue(count));
  args.push_back(SqlValue(after ? int64_t{0} : o.offset));
  ASSIGN_OR_RETURN(auto rows, db.query(sql, args));
  std::vector<Position> keys;
  keys.reserve(rows.size());
  for (auto& row : rows) keys.push_back({std::move(row[0]), std::get<int64_t>(row[1])});
  return keys;
}

std::string RowidList(const std::vector<Position>& keys) {
  std::string out;
  for (const auto& k : keys) out += (out.empty() ? "" : ", ") + std::to_string(k.rowid);
  return out;
}

// A JSON array printed an element at a time, laid out as printJson lays it.
class JsonArrayPrinter {
 public:
  void add(const nlohmann::ordered_json& element) {
    std::string text = element.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::cout << (empty_ ? "[\n  " : ",\n  ");
    for (char c : text) {
      std::cout << c;
      if (c == '\n') std::cout << "  ";
    }
    empty_ = false;
  }
  void finish() { std::cout << (empty_ ? "[]\n" : "\n]\n"); }

 private:
  bool empty_ = true;
};

// Prints the items of `keys`, reading only what is printed: four columns
// for the text form, the whole record for JSON.
Status PrintItems(library::ModelContext& context, const std::vector<Position>& keys,
                           bool json, JsonArrayPrinter& array) {
  if (keys.empty()) return Status::Ok();
  const std::string where = "rowid IN (" + RowidList(keys) + ")";
  const std::string order = "importedAt DESC, rowid DESC";
  if (json) {
    library::FetchDescriptor d;
    d.predicate = where;
    d.sortBy = order;
    ASSIGN_OR_RETURN(auto items, context.fetchDetached<ScreenshotItem>(d));
    for (const auto& item : items) array.add(library::recordToJson(item));
    return Status::Ok();
  }
  ASSIGN_OR_RETURN(auto rows, context.database().query(
                                  "SELECT id, importedAt, processingStateRaw, originalFilename "
                                  "FROM ScreenshotItem WHERE " + where + " ORDER BY " + order));
  for (const auto& row : rows) {
    Date imported;
    (void)library::SqlTraits<Date>::from(row[1], imported);
    auto text = [](const SqlValue& v) {
      auto* s = std::get_if<std::string>(&v);
      return s ? *s : std::string();
    };
    std::cout << text(row[0]) << "  " << formatISO8601(imported) << "  " << text(row[2]) << "  "
              << text(row[3]) << "\n";
  }
  return Status::Ok();
}

Status ListItems(CliSession& session, const ListOptions& o) {
  auto& db = session.context().database();
  JsonArrayPrinter array;
  std::optional<Position> after;
  int64_t listed = 0;
  while (o.all || listed < o.limit) {
    // One key beyond the page tells whether more items follow it.
    const int64_t want = o.all ? kChunk : std::min(kChunk, o.limit - listed);
    ASSIGN_OR_RETURN(auto keys, NextKeys(db, o, after, o.all ? want : want + 1));
    const bool more = static_cast<int64_t>(keys.size()) > want;
    if (more) keys.pop_back();
    RETURN_IF_ERROR(PrintItems(session.context(), keys, o.json, array));
    listed += static_cast<int64_t>(keys.size());
    if (keys.empty() || (!o.all && !more)) break;
    if (!o.all && listed >= o.limit) {
      if (o.json) array.finish();
      std::cout.flush();
      std::cerr << "klipora: listed items " << o.offset + 1 << "-" << o.offset + listed
                << ", newest first; more with --offset " << o.offset + listed
                << ", or every item with --all\n";
      return Status::Ok();
    }
    after = keys.back();
  }
  if (o.json) array.finish();
  return Status::Ok();
}

int RunList(CliSession& session, const ListOptions& options) {
  if (!session.openLibrary()) return session.exitCode;
  if (Status s = ListItems(session, options); !s.ok()) {
    std::cerr << "klipora: cannot read the library: " << s.message() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

int RunShow(CliSession& session, const std::string& id, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto uuid = UUID::Parse(id);
  if (!uuid) {
    std::cerr << "klipora: \"" << id << "\" is not an item id\n";
    return kExitUsage;
  }
  auto item = session.context().fetchByKey<ScreenshotItem>(uuid->uuidString());
  if (!item) {
    std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
    return kExitFailure;
  }
  if (!*item) {
    std::cerr << "klipora: no item with id " << uuid->uuidString() << "\n";
    return kExitFailure;
  }
  auto record = library::recordToJson(**item);
  if (json) {
    printJson(record);
    return kExitOk;
  }
  for (const auto& [key, value] : record.items()) {
    std::cout << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump())
              << "\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(list) {
  auto* list = app.add_subcommand(
      "list", "List the items of the library, newest import first, a page at a time");
  auto options = std::make_shared<ListOptions>();
  list->add_flag("--json", options->json, "Print the records as JSON");
  list->add_flag("--include-trash", options->includeTrash, "Include items in the trash");
  auto* limit = list->add_option("--limit", options->limit, "Items per page (default 50)")
                    ->check(CLI::PositiveNumber);
  list->add_option("--offset", options->offset, "Skip this many items first")
      ->check(CLI::NonNegativeNumber);
  list->add_flag("--all", options->all, "Every item, read a page at a time")->excludes(limit);
  list->callback([&session, options] { session.exitCode = RunList(session, *options); });

  auto* show = app.add_subcommand("show", "Show every field of one item");
  auto id = std::make_shared<std::string>();
  auto showJson = std::make_shared<bool>(false);
  show->add_option("id", *id, "The item's id")->required();
  show->add_flag("--json", *showJson, "Print the record as JSON");
  show->callback([&session, id, showJson] { session.exitCode = RunShow(session, *id, *showJson); });
}

}  // namespace klipora::cli
