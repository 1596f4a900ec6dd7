// klipora categories [list] | add NAME --description TEXT | rename CAT NAME |
// describe CAT TEXT | delete CAT | apply CAT | file CAT ID… | unfile ID…: the
// user's own categories. A
// category is a name and a short rule in the user's words; its keywords and
// centroid are built from the rule (and the model server's suggestions,
// when one is set). `apply` sorts the screenshots already in the library
// into it, as `add` and `describe` do at once while automatic assignment
// (customCategoryAutoAssignEnabled) is on; new screenshots are matched
// either way. `file` and `unfile` are the user's corrections, which the
// category learns from. CAT is an id or a name. A running daemon is told of
// each change.
#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <thread>

#include "app/custom_category_service.h"
#include "app/processing_service.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "intelligence/custom_category_catalog.h"
#include "library/record_json.h"

namespace klipora::cli {
namespace {

using Json = nlohmann::ordered_json;
using library::CustomCategory;

// What the category commands work with: the engine's processing, made for
// this command on its store, with the user categories' service beside it.
// Its queue is not started; the sorter scores through it.
struct Categories {
  explicit Categories(CliSession& session)
      : env(session.environment()),
        saver(session.context(), session.platform().mainLoop),
        processing(app::makeProcessingService(env, session.context(), saver, /*items=*/1)),
        service(*processing->customCategories()),
        catalog(service.catalog()) {}

  app::AppEnvironment env;
  processing::ProcessingSaveCoalescer saver;
  std::unique_ptr<app::ProcessingQueueService> processing;
  app::CustomCategoryService& service;
  intelligence::CustomCategoryCatalog& catalog;
};

std::optional<int64_t> AutoSort(CliSession& session, Categories& c,
                                const CustomCategory& category);
void PrintProgress(const std::string& name, int64_t examined, int64_t total, int64_t assigned);
std::string FiledLine(int64_t count, const std::string& name);

void TellDaemon(CliSession& session) {
  if (runningDaemon(session)) (void)runLibraryRequest(session, app::makeRequest("reload"), 10);
}

int Fail(const std::string& what, const Status& status) {
  std::cerr << "klipora: " << what << ": " << status.message() << "\n";
  return status.code() == Status::Code::kNotFound || status.code() == Status::Code::kInvalidArgument ||
                 status.code() == Status::Code::kAlreadyExists
             ? kExitUsage
             : kExitFailure;
}

Json CategoryJson(Categories& c, const CustomCategory& category) {
  Json keywords = Json::array();
  for (const auto& k : category.keywords()) keywords.push_back(k);
  return Json{{"id", category.id.uuidString()},
              {"name", category.name},
              {"description", category.categoryDescription.value_or("")},
              {"keywords", std::move(keywords)},
              {"centroid", category.embeddingData.has_value()},
              {"items", c.catalog.itemCount(category.id).value_or(0)}};
}

void PrintCategory(Categories& c, const CustomCategory& category) {
  std::cout << category.id.uuidString() << "  " << category.name << "  ("
            << c.catalog.itemCount(category.id).value_or(0) << " screenshots)\n";
  if (category.categoryDescription && !category.categoryDescription->empty()) {
    std::cout << "    " << *category.categoryDescription << "\n";
  }
  std::string keywords;
  for (const auto& k : category.keywords()) keywords += (keywords.empty() ? "" : ", ") + k;
  std::cout << "    keywords: " << (keywords.empty() ? "none" : keywords) << "\n";
}

int RunList(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  Categories c(session);
  auto all = c.catalog.list();
  if (!all) return Fail("cannot read the categories", all.error());
  if (json) {
    Json out = Json::array();
    for (const auto& category : *all) out.push_back(CategoryJson(c, *category));
    printJson(out);
    return kExitOk;
  }
  if (all->empty()) {
    std::cout << "No categories of your own; `klipora categories add NAME --description TEXT` "
                 "makes one.\n";
  }
  for (const auto& category : *all) PrintCategory(c, *category);
  return kExitOk;
}

int RunAdd(CliSession& session, const std::string& name, const std::string& description,
           bool json) {
  if (!session.openLibrary()) return session.exitCode;
  Categories c(session);
  auto category = c.catalog.create(name, description);
  if (!category) return Fail("cannot add the category", category.error());
  TellDaemon(session);
  auto filed = AutoSort(session, c, **category);
  if (json) {
    auto out = CategoryJson(c, **category);
    out["filed"] = filed ? Json(*filed) : Json(nullptr);
    printJson(out);
  } else {
    PrintCategory(c, **category);
    if (filed) std::cout << FiledLine(*filed, (*category)->name) << "\n";
  }
  return kExitOk;
}

int RunChange(CliSession& session, const std::string& action, const std::string& which,
              const std::string& value, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  Categories c(session);
  auto category = c.catalog.find(which);
  if (!category) return Fail("cannot " + action + " the category", category.error());
  const UUID id = (*category)->id;
  const std::string name = (*category)->name;
  if (action == "delete") {
    auto unfiled = c.catalog.remove(id);
    if (!unfiled) return Fail("cannot delete the category", unfiled.error());
    TellDaemon(session);
    if (json) {
      printJson(Json{{"id", id.uuidString()}, {"deleted", true}, {"unfiled", *unfiled}});
    } else {
      std::cout << "Deleted \"" << name << "\"; " << *unfiled
                << " screenshots are no longer filed under it.\n";
    }
    return kExitOk;
  }
  Status changed = action == "rename" ? c.catalog.rename(id, value)
                                      : c.catalog.changeDescription(id, value);
  if (!changed.ok()) return Fail("cannot " + action + " the category", changed);
  auto updated = c.catalog.find(id.uuidString());
  if (!updated) return Fail("cannot read the category", updated.error());
  // A new rule may take screenshots the old one left.
  std::optional<int64_t> filed;
  TellDaemon(session);
  if (action == "describe") filed = AutoSort(session, c, **updated);
  if (json) {
    auto out = CategoryJson(c, **updated);
    if (action == "describe") out["filed"] = filed ? Json(*filed) : Json(nullptr);
    printJson(out);
  } else {
    PrintCategory(c, **updated);
    if (filed) std::cout << FiledLine(*filed, (*updated)->name) << "\n";
  }
  return kExitOk;
}

// Sorts the library's screenshots into `category`, with a progress line per
// batch on standard error.
klipora::Result<intelligence::CustomCategorySorter::Result> SortInto(
    Categories& c, const CustomCategory& category) {
  const std::string name = category.name;
  return c.service.sorter().sort(category.id, [&](const intelligence::CustomSortProgress& p) {
    PrintProgress(name, p.examined, p.total, p.assigned);
  });
}

std::string FiledLine(int64_t count, const std::string& name) {
  return "Filed " + std::to_string(count) + " screenshot" + (count == 1 ? "" : "s") +
         " into \"" + name + "\".";
}

klipora::Result<intelligence::CustomCategorySorter::Result> SortInDaemon(
    CliSession& session, const CustomCategory& category);

// With automatic assignment on, a new or changed category takes the
// screenshots already in the library at once (in the daemon when one runs,
// which must have been told of the change); off, only on request.
std::optional<int64_t> AutoSort(CliSession& session, Categories& c,
                                const CustomCategory& category) {
  if (!session.settings().customCategoryAutoAssignEnabled) return std::nullopt;
  klipora::Result<intelligence::CustomCategorySorter::Result> result =
      Err(Status::Internal("not sorted"));
  if (runningDaemon(session)) {
    result = SortInDaemon(session, category);
  } else {
    result = SortInto(c, category);
  }
  if (!result) {
    std::cerr << "klipora: cannot sort the library into \"" << category.name
              << "\": " << result.error().message() << "\n";
    return std::nullopt;
  }
  return result->assigned;
}

void PrintProgress(const std::string& name, int64_t examined, int64_t total, int64_t assigned) {
  const int percent = total > 0 ? static_cast<int>(double(examined) / double(total) * 100) : 100;
  std::cerr << "Sorting into \"" << name << "\": " << percent << "% (" << examined << " of "
            << total << "), " << assigned << " filed\n";
}

// The daemon sorts (one run per category, its queue scoring); this command
// follows the run with a progress line whenever it moves.
klipora::Result<intelligence::CustomCategorySorter::Result> SortInDaemon(
    CliSession& session, const CustomCategory& category) {
  const std::string id = category.id.uuidString();
  auto ask = [&](const char* command) -> klipora::Result<Json> {
    Json request = app::makeRequest(command);
    request["category"] = id;
    auto reply = runLibraryRequest(session, request, 30);
    if (!reply) return Err(Status::Unavailable("the daemon did not answer"));
    if (!reply->reply.value("ok", false)) {
      return Err(Status::Internal(replyError(reply->reply)));
    }
    return reply->reply;
  };
  ASSIGN_OR_RETURN(auto started, ask("apply-category"));
  (void)started;
  int64_t shown = -1;
  for (;;) {
    ASSIGN_OR_RETURN(auto state, ask("category-sorting"));
    const int64_t examined = state.value("examined", int64_t{0});
    if (examined != shown && (state["running"] == true || !state["result"].is_null())) {
      shown = examined;
      PrintProgress(category.name, examined, state.value("total", int64_t{0}),
                    state.value("assigned", int64_t{0}));
    }
    if (state["running"] == false) {
      if (state["result"].is_null()) {
        return Err(Status::Internal("the daemon's run ended without a result (did it restart?)"));
      }
      return intelligence::CustomCategorySorter::Result{
          category.id, state["result"].value("assigned", int64_t{0}),
          state["result"].value("cancelled", false), session.platform().clock.now()};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
}

int RunApply(CliSession& session, const std::string& which, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  std::optional<Categories> c;
  c.emplace(session);
  auto category = c->catalog.find(which);
  if (!category) return Fail("cannot apply the category", category.error());
  klipora::Result<intelligence::CustomCategorySorter::Result> result =
      Err(Status::Internal("not sorted"));
  if (runningDaemon(session)) {
    c.reset();
    result = SortInDaemon(session, **category);
  } else {
    result = SortInto(*c, **category);
  }
  if (!result) return Fail("cannot sort into \"" + (*category)->name + "\"", result.error());
  if (json) {
    printJson(Json{{"id", (*category)->id.uuidString()},
                   {"assigned", result->assigned},
                   {"cancelled", result->cancelled}});
  } else if (result->cancelled) {
    std::cout << "Sorting into \"" << (*category)->name << "\" was cancelled by a newer run after "
              << result->assigned << " filed.\n";
  } else {
    std::cout << FiledLine(result->assigned, (*category)->name) << "\n";
  }
  return kExitOk;
}

// Files screenshots under `which` (or, without it, takes them out of their
// category). The categories concerned learn from the move: in the daemon
// when one runs, else here and now.
int RunFile(CliSession& session, const std::optional<std::string>& which,
            const std::vector<std::string>& ids, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  std::optional<Categories> c;
  c.emplace(session);
  std::optional<std::shared_ptr<CustomCategory>> target;
  if (which) {
    auto found = c->catalog.find(*which);
    if (!found) return Fail("cannot file into the category", found.error());
    target = *found;
  }
  Json request = app::makeRequest("file-category");
  request["category"] = target ? Json((*target)->id.uuidString()) : Json(nullptr);
  request["ids"] = ids;
  std::optional<app::Json> reply;
  if (runningDaemon(session)) {
    c.reset();  // the daemon's service learns; this one would only wait
    auto answered = runLibraryRequest(session, request);
    if (!answered) return session.exitCode;
    reply = std::move(answered->reply);
  } else {
    auto direct = storeRequestTarget(session, nullptr);
    direct.customCategories = &c->service;
    app::ControlRequestHandler(direct).handle(request, [&](app::Json r) { reply = std::move(r); });
    c->service.learner().runPendingNow();
  }
  if (!reply->value("ok", false)) {
    std::cerr << "klipora: cannot file the screenshots: " << replyError(*reply) << "\n";
    return kExitFailure;
  }
  const auto& moved = (*reply)["moved"];
  int status = kExitOk;
  for (const auto& unknown : (*reply)["unknown"]) {
    std::cerr << "klipora: no screenshot with id " << unknown.get<std::string>() << "\n";
    status = kExitFailure;
  }
  if (json) {
    printJson(Json{{"category", (*reply)["category"]}, {"moved", moved}});
  } else if (target) {
    std::cout << "Filed " << moved.size() << " screenshot" << (moved.size() == 1 ? "" : "s")
              << " into \"" << (*target)->name << "\".\n";
  } else {
    std::cout << "Took " << moved.size() << " screenshot" << (moved.size() == 1 ? "" : "s")
              << " out of their category.\n";
  }
  return status;
}

}  // namespace

KLIPORA_COMMAND(categories) {
  auto* cmd = app.add_subcommand("categories", "Show or change your own categories");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the result as JSON");
  auto* list = cmd->add_subcommand("list", "Show your categories with their keywords");
  list->add_flag("--json", *json, "Print the categories as JSON");
  list->callback([&session, json] { session.exitCode = RunList(session, *json); });

  auto* add = cmd->add_subcommand("add", "Make a category from a name and a short rule");
  auto name = std::make_shared<std::string>();
  auto description = std::make_shared<std::string>();
  add->add_option("name", *name, "The category's name")->required();
  add->add_option("--description", *description,
                  "A short rule in your own words: what belongs in it");
  add->add_flag("--json", *json, "Print the category as JSON");
  add->callback([&session, name, description, json] {
    session.exitCode = RunAdd(session, *name, *description, *json);
  });

  struct Change {
    const char* action;
    const char* help;
    const char* valueName;
    const char* valueHelp;
  };
  for (const Change& change :
       {Change{"rename", "Give a category another name", "name", "The new name"},
        Change{"describe", "Change a category's rule (its keywords are rebuilt)", "description",
               "The new rule"},
        Change{"delete", "Delete a category; its screenshots are unfiled", nullptr, nullptr}}) {
    auto* sub = cmd->add_subcommand(change.action, change.help);
    auto which = std::make_shared<std::string>();
    auto value = std::make_shared<std::string>();
    sub->add_option("category", *which, "Its id or name")->required();
    if (change.valueName) sub->add_option(change.valueName, *value, change.valueHelp)->required();
    sub->add_flag("--json", *json, "Print the result as JSON");
    const std::string action = change.action;
    sub->callback([&session, action, which, value, json] {
      session.exitCode = RunChange(session, action, *which, *value, *json);
    });
  }

  auto* apply = cmd->add_subcommand("apply", "Sort the screenshots already in the library into a category");
  auto which = std::make_shared<std::string>();
  apply->add_option("category", *which, "Its id or name")->required();
  apply->add_flag("--json", *json, "Print the result as JSON");
  apply->callback([&session, which, json] { session.exitCode = RunApply(session, *which, *json); });

  auto* file = cmd->add_subcommand("file", "File screenshots under a category (it learns from it)");
  auto target = std::make_shared<std::string>();
  auto ids = std::make_shared<std::vector<std::string>>();
  file->add_option("category", *target, "Its id or name")->required();
  file->add_option("ids", *ids, "Screenshot ids")->required();
  file->add_flag("--json", *json, "Print the result as JSON");
  file->callback([&session, target, ids, json] {
    session.exitCode = RunFile(session, *target, *ids, *json);
  });
  auto* unfile = cmd->add_subcommand(
      "unfile", "Take screenshots out of their category (look-alikes then stay out too)");
  auto unfiled = std::make_shared<std::vector<std::string>>();
  unfile->add_option("ids", *unfiled, "Screenshot ids")->required();
  unfile->add_flag("--json", *json, "Print the result as JSON");
  unfile->callback([&session, unfiled, json] {
    session.exitCode = RunFile(session, std::nullopt, *unfiled, *json);
  });

  cmd->callback([&session, cmd, json] {
    if (cmd->get_subcommands().empty()) session.exitCode = RunList(session, *json);
  });
}

}  // namespace klipora::cli
