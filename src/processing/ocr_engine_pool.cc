#include "processing/ocr_engine_pool.h"

#include <algorithm>
#include <chrono>

#include "platform/log.h"

namespace klipora::processing {

OCREnginePool::Lease::Lease(Lease&& other) noexcept
    : pool_(other.pool_),
      engine_(std::move(other.engine_)),
      generation_(other.generation_),
      discard_(other.discard_) {
  other.pool_ = nullptr;
}

OCREnginePool::Lease& OCREnginePool::Lease::operator=(Lease&& other) noexcept {
  if (this != &other) {
    giveBack();
    pool_ = other.pool_;
    engine_ = std::move(other.engine_);
    generation_ = other.generation_;
    discard_ = other.discard_;
    other.pool_ = nullptr;
  }
  return *this;
}

OCREnginePool::Lease::~Lease() { giveBack(); }

void OCREnginePool::Lease::giveBack() {
  if (pool_ == nullptr || engine_ == nullptr) return;
  std::unique_ptr<OcrEngine> dropped;
  {
    std::lock_guard lock(pool_->mutex_);
    --pool_->leased_;
    if (discard_ || generation_ != pool_->generation_) {
      dropped = std::move(engine_);
    } else {
      pool_->idle_.push_back(std::move(engine_));
    }
  }
  pool_->changed_.notify_all();
  pool_ = nullptr;
}

std::unique_ptr<OcrEngine> OCREnginePool::Lease::abandon() {
  if (pool_ == nullptr) return std::move(engine_);
  {
    std::lock_guard lock(pool_->mutex_);
    --pool_->leased_;
  }
  pool_->changed_.notify_all();
  pool_ = nullptr;
  return std::move(engine_);
}

OCREnginePool::OCREnginePool(OcrEngineFactory& factory, std::vector<std::string> languages,
                             int capacity)
    : factory_(factory), capacity_(std::max(1, capacity)), languages_(std::move(languages)) {}

OCREnginePool::~OCREnginePool() = default;

tl::expected<OCREnginePool::Lease, OCREnginePool::AcquireError> OCREnginePool::acquire(
    double waitSeconds) {
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(std::max(0.0, waitSeconds)));
  std::unique_lock lock(mutex_);
  while (true) {
    if (!idle_.empty()) return takeIdleLocked();
    if (leased_ + loading_ < capacity_) {
      Loaded loaded = loadUnlocked(lock);
      if (!loaded.engine) return tl::unexpected(AcquireError{false, loaded.engine.error()});
      ++leased_;
      return Lease(this, std::move(*loaded.engine), loaded.generation);
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      bool loading = loading_ > 0;
      return tl::unexpected(
          AcquireError{loading, Status::TimedOut(loading ? "the recognizer is still being loaded"
                                                         : "every recognizer is busy")});
    }
    changed_.wait_until(lock, deadline);
  }
}

OCREnginePool::Lease OCREnginePool::tryAcquireIdle() {
  std::lock_guard lock(mutex_);
  return idle_.empty() ? Lease() : takeIdleLocked();
}

OCREnginePool::Lease OCREnginePool::takeIdleLocked() {
  std::unique_ptr<OcrEngine> engine = std::move(idle_.back());
  idle_.pop_back();
  ++leased_;
  return Lease(this, std::move(engine), generation_);
}

OCREnginePool::Loaded OCREnginePool::loadUnlocked(std::unique_lock<std::mutex>& lock) {
  ++loading_;
  ++loadsStarted_;
  std::vector<std::string> languages = languages_;
  uint64_t generation = generation_;
  lock.unlock();
  auto engine = makeEngine(languages);
  lock.lock();
  --loading_;
  changed_.notify_all();
  return {std::move(engine), generation};
}

Result<std::unique_ptr<OcrEngine>> OCREnginePool::makeEngine(
    const std::vector<std::string>& languages) {
  auto engine = factory_.makeEngine(languages);
  if (engine || engine.error().code() != Status::Code::kNotFound) return engine;
  // A language pack removed since it was chosen: read with what remains.
  std::vector<std::string> remaining, missing;
  std::vector<OcrLanguage> known = factory_.languages();
  for (const std::string& code : languages) {
    bool installed = std::any_of(known.begin(), known.end(), [&](const OcrLanguage& l) {
      return l.code == code && l.installed;
    });
    (installed ? remaining : missing).push_back(code);
  }
  if (remaining.empty() || missing.empty()) return engine;
  std::string warning = engine.error().message();
  {
    std::lock_guard lock(warnedMutex_);
    if (warning == lastWarning_) {
      warning.clear();
    } else {
      lastWarning_ = warning;
    }
  }
  if (!warning.empty()) {
    std::string rest;
    for (const std::string& code : remaining) rest += (rest.empty() ? "" : "+") + code;
    log::warning("OCR", "%s; reading with %s meanwhile", warning.c_str(), rest.c_str());
  }
  return factory_.makeEngine(remaining);
}

Status OCREnginePool::preload(int count) {
  count = std::min(count, capacity_);
  std::unique_lock lock(mutex_);
  while (static_cast<int>(idle_.size()) + leased_ + loading_ < count) {
    Loaded loaded = loadUnlocked(lock);
    if (!loaded.engine) return loaded.engine.error();
    if (loaded.generation == generation_) idle_.push_back(std::move(*loaded.engine));
  }
  return Status::Ok();
}

void OCREnginePool::setLanguages(std::vector<std::string> languages) {
  std::vector<std::unique_ptr<OcrEngine>> dropped;
  {
    std::lock_guard lock(mutex_);
    if (languages == languages_) return;
    languages_ = std::move(languages);
    ++generation_;
    dropped.swap(idle_);
  }
  changed_.notify_all();
}

int OCREnginePool::loadedCount() const {
  std::lock_guard lock(mutex_);
  return static_cast<int>(idle_.size()) + leased_;
}

int OCREnginePool::loadsStarted() const {
  std::lock_guard lock(mutex_);
  return loadsStarted_;
}

}  // namespace klipora::processing
