// ControlRequestHandler: what the daemon's control channel understands, and
// what the klipora commands run on the store themselves when no daemon
// runs, so both ways give the same answer. One JSON object per request,
// {"command": NAME, …}, one per reply, {"ok": true, …} or
// {"ok": false, "error": TEXT}.
//
//   status                          daemon, library, item counts per state
//   reload                          re-reads the user defaults and settings
//   trash / restore / delete  ids   per-id outcomes
//   empty-trash                     per-id outcomes
//   sweep-trash                     one retention sweep now
//   import  paths [source]          daemon only: per path its outcome
//                                   ("imported", "duplicate", "failed"), the
//                                   id, and for the others error and cause;
//                                   source "folderImport" for a folder
//   retry  ids                      back to pending; the daemon runs them first
//   reprocess  all|category|failed  back to pending; the daemon queues them
//   wait  ids [timeoutSeconds]      daemon only: answers once every item has
//                                   finished processing (or the time is up)
//   pause  until                    pauses the import of new screenshots:
//                                   "indefinitely", "tomorrow" or seconds
//   resume                          ends the pause
//   model  endpoint [model]         sets the model server (null endpoint:
//                                   none); kept with the user defaults
//   scan  [folders] [force]         a reconciliation pass now (answers when
//                                   it ends); `force`: every file the
//                                   library lacks, whatever its age
//   pending  action                 show, accept or dismiss the pass result
//                                   held above the bulk-import threshold
//   markup-commit  id snapshot destination   commits a markup edit to an item
//                                   (overwriteOriginal or newSibling)
//   file-category  category ids     files screenshots under a user category
//                                   (category null: out of theirs) and lets
//                                   the categories learn from the move;
//                                   answers moved and unknown ids
//   apply-category  category        starts sorting the library into a user
//                                   category (a run under way for it ends)
//   category-sorting  category      how that run goes: running, examined,
//                                   total, assigned, and the result once done
//
// Thread rules: main thread (it uses the main context).
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "app/app_coordinator.h"
#include "app/custom_category_service.h"
#include "library/library_root.h"
#include "library/record_json.h"
#include "library/screenshot_item.h"
#include "platform/user_defaults.h"

namespace klipora::app {

using Json = library::Json;

// What requests run against. In the daemon, `coordinator` supplies the
// storage, the retention and the queue; without one (a command working on
// the store directly) `storage` is used.
struct RequestTarget {
  library::ModelContext& context;
  library::MarkupEditCleaner& markupEdits;
  Clock& clock;
  Timers& timers;
  UserDefaults& userDefaults;
  AppCoordinator* coordinator = nullptr;
  library::StorageService* storage = nullptr;
  std::string storePath;
  std::string libraryRoot;
  std::optional<library::LibraryFallbackNotice> fallbackNotice;
  std::optional<int> daemonPid;  // set in the daemon
  // The user categories' service of a command that made one (the daemon's
  // is its coordinator's).
  CustomCategoryService* customCategories = nullptr;
};

class ControlRequestHandler {
 public:
  using Reply = std::function<void(Json reply)>;

  explicit ControlRequestHandler(RequestTarget target);

  // Parses one request line and answers it (perhaps later, for imports).
  void handleLine(const std::string& line, std::function<void(std::string)> reply);
  void handle(const Json& request, Reply reply);

  static Json errorReply(const std::string& message);

 private:
  Json status();
  Json reload();
  Json trashRequest(const std::string& command, const Json& request);
  Json sweepTrash();
  void import(const Json& request, Reply reply);
  Json retry(const Json& request);
  Json reprocess(const Json& request);
  void wait(const Json& request, Reply reply);
  Json pause(const std::string& command, const Json& request);
  Json model(const Json& request);
  void scan(const Json& request, Reply reply);
  void pending(const Json& request, Reply reply);
  Json markupCommit(const Json& request);
  Json fileCategory(const Json& request);
  Json sortCategory(const std::string& command, const Json& request);
  CustomCategoryService* customCategories();
  library::StorageService* storage();
  static Result<std::vector<UUID>> idsOf(const std::string& command, const Json& request);

  RequestTarget target_;
};

// Builds a request, for the command-line side.
Json makeRequest(const std::string& command);

// What a finished (or still running) item looks like in replies: id, state,
// category, confidence, title, error.
Json itemOutcomeJson(const library::ScreenshotItem& item);

// One file's import in replies: path, outcome ("imported", "duplicate" or
// "failed"), id (also of an item made by an import that failed late), error
// and cause.
Json importOutcomeJson(const std::string& path, const ingestion::ImportResult& result);
// Adds "note" and "cause" to the entry of an imported file whose saved item
// has no thumbnail (a damaged or truncated image, one too large to show).
void noteMissingThumbnail(Json& entry, library::ModelContext& context);

}  // namespace klipora::app
