#include "ingestion/import_pipeline.h"

#include <algorithm>

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
  std::string bytes;
  std::optional<ImageProperties> properties;
  std::optional<Date> capturedAt;
  std::string checksum;
  std::shared_ptr<ScreenshotItem> item;
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
      background_(background) {}

Executor& ImportPipeline::workerFor(const Job& job) {
  return job.source == library::ImportSourceType::automaticWatch && freshWorker_ ? *freshWorker_
                                                                                 : background_;
}

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
    // Nothing has been touched; answer on the main loop like every other outcome.
    fail(job, ImportError::unsupportedFileType(extension), false);
    return;
  }
  // A screenshot just taken starts at once; the files of a bulk import go a
  // few at a time, so that memory holds only the files being copied, not
  // every file asked for.
  if (job->source == library::ImportSourceType::automaticWatch || bulkActive_ < kBulkInFlight) {
    start(job);
  } else {
    bulkWaiting_.push_back(job);
  }
}

void ImportPipeline::start(std::shared_ptr<Job> job) {
  if (job->source != library::ImportSourceType::automaticWatch) {
    ++bulkActive_;
    // The next file starts before the caller hears of this one: the caller
    // may end the import (and the pipeline with it) when it does.
    job->done = [this, done = std::move(job->done)](ImportResult result) {
      --bulkActive_;
      if (!bulkWaiting_.empty() && bulkActive_ < kBulkInFlight) {
        auto next = std::move(bulkWaiting_.front());
        bulkWaiting_.pop_front();
        start(std::move(next));
      }
      done(std::move(result));
    };
  }
  workerFor(*job).post([this, job] { readAndHash(job); });
}

void ImportPipeline::readAndHash(std::shared_ptr<Job> job) {
  auto bytes = storage_.fileSystem().readFile(job->path);
  if (!bytes) {
    log::info("Library", "import of %s failed: %s", job->path.c_str(),
              bytes.error().message().c_str());
    fail(job, ImportError::unreadableFile(), false);
    return;
  }
  job->bytes = std::move(*bytes);
  auto properties = storage_.codec().properties(job->bytes);
  if (!properties) {
    log::info("Library", "import of %s refused: %s", job->path.c_str(),
              properties.error().message().c_str());
    fail(job, ImportError::unreadableFile(), false);
    return;
  }
  job->properties = *properties;
  job->capturedAt = storage_.fileCreationDate(job->path, job->properties);
  job->checksum = sha256Hex(job->bytes);
  mainLoop_.post([this, job] { claimOnMain(job); });
}

void ImportPipeline::claimOnMain(std::shared_ptr<Job> job) {
  if (!claims_.claim(job->checksum)) {
    job->done(tl::unexpected(ImportError::duplicateScreenshot()));
    return;
  }
  workerFor(*job).post([this, job] { copyIn(job); });
}

void ImportPipeline::copyIn(std::shared_ptr<Job> job) {
  auto copy = storage_.copyToLibrary(job->path, job->bytes);
  if (!copy) {
    fail(job, ImportError::fileSystem(copy.error()), true);
    return;
  }
  auto item = std::make_shared<ScreenshotItem>();
  item->originalFilename = lastPathComponent(job->path);
  item->importedFilename = lastPathComponent(*copy);
  item->sourcePath = job->path;
  item->libraryPath = *copy;
  item->capturedAt = job->capturedAt;
  item->fileSize = static_cast<int64_t>(job->bytes.size());
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
  if (auto thumbnail = storage_.generateThumbnailFromData(job->bytes, item->id)) {
    item->thumbnailPath = *thumbnail;
    item->setProcessingState(library::ProcessingState::thumbnailGenerated);
  }
  if (job->source == library::ImportSourceType::automaticWatch && deleteOriginalAfterImport_) {
    // The copy is safe in the library by now; a source that cannot be removed
    // is reported but does not undo the import.
    if (Status s = storage_.fileSystem().removeFile(job->path); !s.ok()) {
      log::warning("Cleanup", "could not delete original %s: %s", job->path.c_str(),
                   s.message().c_str());
    }
  }
  job->bytes.clear();
  job->bytes.shrink_to_fit();
  job->item = std::move(item);
  mainLoop_.post([this, job] { insertOnMain(job); });
}

void ImportPipeline::insertOnMain(std::shared_ptr<Job> job) {
  context_.insert(job->item);
  claims_.release(job->checksum);
  saver_.scheduleSave();
  job->done(job->item->id);
}

void ImportPipeline::fail(std::shared_ptr<Job> job, ImportError error, bool releaseClaim) {
  mainLoop_.post([this, job, error = std::move(error), releaseClaim]() mutable {
    if (releaseClaim) claims_.release(job->checksum);
    job->done(tl::unexpected(std::move(error)));
  });
}

}  // namespace klipora::ingestion
