// OCREnginePool: a few loaded recognisers, one per recognition allowed to run
// at once. Loading one takes a noticeable fraction of a second, so engines are
// made on first need (or by preload) and kept between screenshots; a lease
// hands one engine to one thread and gives it back when it ends. A chosen
// language whose model has gone is left out, with a warning, so the others
// are still read.
//
// Thread rules: every method is safe from any thread. acquire() blocks while
// every engine is leased or loading.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/ocr_engine.h"

namespace klipora::processing {

class OCREnginePool {
 public:
  class Lease {
   public:
    Lease() = default;
    Lease(Lease&& other) noexcept;
    Lease& operator=(Lease&& other) noexcept;
    ~Lease();

    OcrEngine& engine() { return *engine_; }
    explicit operator bool() const { return engine_ != nullptr; }
    // The engine is dropped instead of returned (after a failure or an
    // abandoned recognition); the pool loads a fresh one when needed.
    void discard() { discard_ = true; }
    // Hands the engine over to a recognition that is being left running: the
    // pool counts it gone at once, and the holder frees it.
    std::unique_ptr<OcrEngine> abandon();

   private:
    friend class OCREnginePool;
    Lease(OCREnginePool* pool, std::unique_ptr<OcrEngine> engine, uint64_t generation)
        : pool_(pool), engine_(std::move(engine)), generation_(generation) {}
    void giveBack();

    OCREnginePool* pool_ = nullptr;
    std::unique_ptr<OcrEngine> engine_;
    uint64_t generation_ = 0;
    bool discard_ = false;
  };

  struct AcquireError {
    bool stillLoading = false;  // timed out while engines were being loaded
    Status status;              // why loading failed, or the time-out
  };

  OCREnginePool(OcrEngineFactory& factory, std::vector<std::string> languages, int capacity);
  ~OCREnginePool();
  OCREnginePool(const OCREnginePool&) = delete;
  OCREnginePool& operator=(const OCREnginePool&) = delete;

  // An idle engine, else a newly loaded one while below capacity, else the
  // next one given back, waiting at most `waitSeconds` for it.
  tl::expected<Lease, AcquireError> acquire(double waitSeconds);
  // An idle engine if there is one; never loads and never waits.
  Lease tryAcquireIdle();
  // Loads engines until `count` exist (at most capacity). Returns the first
  // loading failure.
  Status preload(int count);
  // Switches languages: idle engines are dropped, leased ones when given back.
  void setLanguages(std::vector<std::string> languages);

  int capacity() const { return capacity_; }
  int loadedCount() const;  // idle plus leased
  int loadsStarted() const;

 private:
  struct Loaded {
    Result<std::unique_ptr<OcrEngine>> engine;
    uint64_t generation;  // the languages it was loaded for
  };
  // The last idle engine, lent out. Requires the lock.
  Lease takeIdleLocked();
  // Loads an engine with `lock` released meanwhile; held again on return.
  Loaded loadUnlocked(std::unique_lock<std::mutex>& lock);
  // An engine for `languages`; when some of them are no longer installed, one
  // for those that are, with a warning (once per missing set) in the log.
  Result<std::unique_ptr<OcrEngine>> makeEngine(const std::vector<std::string>& languages);

  OcrEngineFactory& factory_;
  const int capacity_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> languages_;
  uint64_t generation_ = 1;
  std::vector<std::unique_ptr<OcrEngine>> idle_;
  int leased_ = 0;
  int loading_ = 0;
  int loadsStarted_ = 0;
  std::mutex warnedMutex_;
  std::string lastWarning_;
};

}  // namespace klipora::processing
