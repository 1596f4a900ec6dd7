// markup-commit: commits a markup edit to an item (see markup_commit_service.h)
//   {"command": "markup-commit", "id": ID, "snapshot": {…},
//    "destination": "overwriteOriginal" | "newSibling"}
// answers {"ok": true, "url", "newItemID", "queued"}; the item that holds the
// new pixels is processed again (at once by a daemon, else by `klipora run`).
#include "app/control_requests.h"
#include "app/markup_commit_service.h"
#include "markup/markup_asset_stores.h"
#include "markup/markup_snapshot_json.h"

namespace klipora::app {
namespace {

std::string ParentFolder(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

}  // namespace

Json ControlRequestHandler::markupCommit(const Json& request) {
  auto id = UUID::Parse(request.value("id", ""));
  if (!id) return errorReply("markup-commit needs the id of an item");
  const std::string destination = request.value("destination", "");
  MarkupCommit::Destination where;
  if (destination == "overwriteOriginal") {
    where = MarkupCommit::Destination::overwriteOriginal;
  } else if (destination == "newSibling") {
    where = MarkupCommit::Destination::newSibling;
  } else {
    return errorReply("markup-commit needs a destination: overwriteOriginal or newSibling");
  }
  if (!request.contains("snapshot") || !request["snapshot"].is_object()) {
    return errorReply("markup-commit needs a snapshot");
  }
  auto snapshot = markup::decodeSnapshot(request["snapshot"].dump());
  if (!snapshot) return errorReply("not a valid markup snapshot: " + snapshot.error().message());
  library::StorageService* storage = this->storage();
  if (!storage) return errorReply("the library is not open yet");
  markup::RunInPlace io;  // the stores are only read here
  const std::string support = ParentFolder(target_.storePath);
  markup::MarkupSignatureStore signatures(storage->fileSystem(), io, io, support,
                                         target_.clock);
  markup::MarkupWatermarkStore watermarks(storage->fileSystem(), storage->codec(), io, io,
                                          support, target_.clock);
  markup::MarkupStoredAssets assets(signatures, watermarks);
  MarkupCommitService service(target_.context, *storage, target_.clock, &assets);
  auto result = service.commit(*id, *snapshot, where);
  if (!result) return errorReply(result.error().message());
  auto* queue = target_.coordinator ? target_.coordinator->processingQueue() : nullptr;
  if (queue) {
    queue->supersede(result->newItemID);
    queue->enqueuePriority(result->newItemID);
  }
  return {{"ok", true},
          {"url", result->url},
          {"newItemID", result->newItemID.uuidString()},
          {"queued", queue != nullptr}};
}

}  // namespace klipora::app
