#include "ingestion/import_pipeline.h"

#include <algorithm>
#include <utility>

#include "library/screenshot_item.h"
#include "platform/log.h"
#include "platform/sha256.h"

namespace klipora::ingestion {

using library::ScreenshotItem;

struct ImportPipeline::Job {
  std::string path;
  library::ImportSourceType source;
  std::optional<std::string> bundleID;
  std::optional<std::string> appName;
  Completion done;
  Executor* worker = nullptr;            // where its file work runs
  std::optional<UUID> copyName, itemID;  // noted in the store; absent if that failed
  std::string copyPath;  // the library copy, made while the source is read
  std::string bytes;     // the file's bytes while it is small enough to keep
  bool inMemory = true;
  int64_t size = 0;
  std::optional<ImageProperties> properties;
  std::optional<Date> capturedAt;
  std::string checksum;
  std::shared_ptr<ScreenshotItem> item;
  Status originalNotRemoved;
};

std::string lowerCasedExtension(const std::string& path) {
  std::string ext = pathExtension(path);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

ImportPipeline::ImportPipeline(library::StorageService& storage, library::ModelContext& context,
                               processing::ProcessingSaveCoalescer& saver,
                               ImportChecksumClaims& claims, Clock& clock, Executor& mainLoop,
                               Executor& background)
    : storage_(storage),
      context_(context),
      saver_(saver),
      claims_(claims),
      clock_(clock),
      mainLoop_(mainLoop),
      background_(background),
      copiesInFlight_(context.database(), clock) {}

void ImportPipeline::importScreenshot(const std::string& path, library::ImportSourceType source,
                                      std::optional<std::string> sourceAppBundleID,
                                      std::optional<std::string> sourceAppName, Completion done) {
  auto job = std::make_shared<Job>();
  job->path = path;
  job->source = source;
  job->bundleID = std::move(sourceAppBundleID);
  job->appName = std::move(sourceAppName);
  job->done = std::move(done);
  std::string extension = lowerCasedExtension(path);
  if (!SupportedImageTypes::contains(extension)) {
    // Nothing has been touched; answer on the main loop like every other
    // outcome. A folder is named as one, whatever its name.
    auto attributes = storage_.fileSystem().attributes(path);
    fail(job,
         attributes && attributes->isDirectory
             ? ImportError::unreadableFile(ImportError::folderCause())
             : ImportError::unsupportedFileType(extension),
         false);
    return;
  }
  // Files go a few at a time per lane, so that memory holds only the files
  // being copied, not every file asked for: a drop of thousands of
  // screenshots into a watched folder queues like a bulk import. A single
  // screenshot finds its lane empty and starts at once.
  Lane& lane = laneOf(*job);
  if (lane.active < kInFlightPerLane) {
    start(std::move(job));
  } else {
    lane.waiting.push_back(std::move(job));
  }
}

ImportPipeline::Lane& ImportPipeline::laneOf(const Job& job) {
  return job.source == library::ImportSourceType::automaticWatch ? freshLane_ : bulkLane_;
}

void ImportPipeline::start(std::shared_ptr<Job> job) {
  job->copyName = copiesInFlight_.take();
  job->itemID = copiesInFlight_.take();
  Lane& lane = laneOf(*job);
  // A screenshot just taken has the fresh worker to itself. That worker also
  // reads the text of each screenshot imported, so the files of a drop go to
  // the background threads instead, where they do not queue behind it.
  job->worker =
      lane.active == 0 && freshWorker_ && &lane == &freshLane_ ? freshWorker_ : &background_;
  ++lane.active;
  // The next file starts before the caller hears of this one: the caller
  // may end the import (and the pipeline with it) when it does.
  job->done = [this, &lane, done = std::move(job->done)](ImportResult result) {
    finished(lane);
    done(std::move(result));
  };
  job->worker->post([this, job] { copyAndHash(job); });
}

void ImportPipeline::dropWaiting(const ImportError& error) {
  for (Lane* lane : {&freshLane_, &bulkLane_}) {
    for (auto& job : std::exchange(lane->waiting, {})) fail(std::move(job), error, false);
  }
}

void ImportPipeline::finished(Lane& lane) {
  --lane.active;
  if (!lane.waiting.empty() && lane.active < kInFlightPerLane) {
    auto next = std::move(lane.waiting.front());
    lane.waiting.pop_front();
    start(std::move(next));
  }
}

namespace {

// Why a source file could not be read, in the user's words.
std::string SourceCause(const Status& error) {
  if (error.code() == Status::Code::kPermissionDenied) return "no permission to read it";
  return ImportError::userCause(error);
}

// Why bytes that were read are not an image we can take.
std::string ImageCause(const Status& error) {
  if (error.code() == Status::Code::kInvalidArgument &&
      error.message().find("not an image") != std::string::npos) {
    return "it is not an image in any format Klipora reads";
  }
  return "the image is damaged or incomplete";
}

}  // namespace

void ImportPipeline::copyAndHash(std::shared_ptr<Job> job) {
  FileSystem& fs = storage_.fileSystem();
  job->copyPath = job->copyName ? storage_.libraryCopyPath(*job->copyName, job->path)
                                : storage_.newLibraryCopyPath(job->path);
  // One read of the source: each chunk is hashed, kept while the file is
  // small enough to examine in memory, and written to the library copy.
  Sha256 hash;
  bool keep = true;
  StreamedCopy copy = fs.copyStreaming(job->path, job->copyPath, [&](std::string_view chunk) {
    hash.update(chunk);
    if (keep && job->bytes.size() + chunk.size() > inMemoryLimit_) {
      keep = false;
      std::string().swap(job->bytes);
    }
    if (keep) job->bytes.append(chunk);
    return Status::Ok();
  });
  job->inMemory = keep;
  if (!copy.sourceError.ok()) {
    log::info("Library", "import of %s failed: %s", job->path.c_str(),
              copy.sourceError.message().c_str());
    fail(job, ImportError::unreadableFile(SourceCause(copy.sourceError)), false);
    return;
  }
  if (!copy.destinationError.ok()) {
    log::warning("Library", "import of %s failed: %s", job->path.c_str(),
                 copy.destinationError.message().c_str());
    ImportError error = ImportError::fileSystem(copy.destinationError);
    if (copy.destinationError.code() == Status::Code::kPermissionDenied) {
      error.cause = "no permission to write in the library folder";
    }
    fail(job, std::move(error), false);
    return;
  }
  // A fresh file carries no attributes today; removing the mark anyway keeps
  // the copy from ever being taken for a new screenshot.
  (void)fs.removeExtendedAttribute(job->copyPath, library::kScreenCaptureAttribute);
  if (copy.size == 0) {
    discardCopy(*job);
    fail(job, ImportError::unreadableFile("the file is empty"), false);
    return;
  }
  auto properties = job->inMemory ? storage_.codec().properties(job->bytes)
                                  : storage_.codec().propertiesOfFile(job->copyPath);
  if (!properties) {
    log::info("Library", "import of %s refused: %s", job->path.c_str(),
              properties.error().message().c_str());
    discardCopy(*job);
    fail(job, ImportError::unreadableFile(ImageCause(properties.error())), false);
    return;
  }
  job->properties = *properties;
  job->capturedAt = storage_.fileCreationDate(job->path, job->properties);
  job->size = copy.size;
  job->checksum = hash.finishHex();
  mainLoop_.post([this, job] { claimOnMain(job); });
}

void ImportPipeline::discardCopy(Job& job) {
  std::string().swap(job.bytes);
  if (Status s = storage_.fileSystem().removeFile(job.copyPath); !s.ok()) {
    // The start-up sweep removes what no record names.
    log::warning("Library", "could not remove %s: %s", job.copyPath.c_str(), s.message().c_str());
  }
}

void ImportPipeline::claimOnMain(std::shared_ptr<Job> job) {
  if (!claims_.claim(job->checksum)) {
    job->worker->post([this, job] {
      discardCopy(*job);
      fail(job, ImportError::duplicateScreenshot(), false);
    });
    return;
  }
  job->worker->post([this, job] { makeItem(job); });
}

void ImportPipeline::makeItem(std::shared_ptr<Job> job) {
  auto item = std::make_shared<ScreenshotItem>();
  if (job->itemID) item->id = *job->itemID;
  item->originalFilename = lastPathComponent(job->path);
  item->importedFilename = lastPathComponent(job->copyPath);
  item->sourcePath = job->path;
  item->libraryPath = job->copyPath;
  item->capturedAt = job->capturedAt;
  item->fileSize = job->size;
  if (auto size = storage_.imageDimensions(*job->properties)) {
    item->width = size->first;
    item->height = size->second;
  }
  item->checksum = job->checksum;
  item->importedAt = clock_.now();
  item->importSource = job->source;
  item->sourceAppBundleID = job->bundleID;
  item->sourceAppName = job->appName;
  // A thumbnail failure leaves thumbnailPath absent; processing records it.
  auto thumbnail = job->inMemory ? storage_.generateThumbnailFromData(job->bytes, item->id)
                                 : storage_.generateThumbnail(job->copyPath, item->id);
  if (thumbnail) {
    item->thumbnailPath = *thumbnail;
    item->setProcessingState(library::ProcessingState::thumbnailGenerated);
  }
  std::string().swap(job->bytes);
  if (job->source == library::ImportSourceType::automaticWatch && deleteOriginalAfterImport_) {
    // The copy is safe in the library by now; a source that cannot be removed
    // is reported once the item exists, and does not undo the import.
    if (Status s = storage_.fileSystem().removeFile(job->path); !s.ok()) {
      log::warning("Cleanup", "could not delete original %s: %s", job->path.c_str(),
                   s.message().c_str());
      job->originalNotRemoved = s;
    }
  }
  job->item = std::move(item);
  mainLoop_.post([this, job] { insertOnMain(job); });
}

void ImportPipeline::insertOnMain(std::shared_ptr<Job> job) {
  context_.insert(job->item);
  claims_.release(job->checksum);
  saver_.scheduleSave();
  if (!job->originalNotRemoved.ok()) {
    job->done(
        tl::unexpected(ImportError::fileSystemAfterImport(job->originalNotRemoved, job->item->id)));
    return;
  }
  job->done(job->item->id);
}

void ImportPipeline::fail(std::shared_ptr<Job> job, ImportError error, bool releaseClaim) {
  mainLoop_.post([this, job, error = std::move(error), releaseClaim]() mutable {
    if (releaseClaim) claims_.release(job->checksum);
    job->done(tl::unexpected(std::move(error)));
  });
}

}  // namespace klipora::ingestion
