// ProcessingSaveCoalescer: every writer of records calls scheduleSave()
// instead of saving. The main context is saved once 25 changes have gathered
// or after 0.6 s without a new one, whichever comes first, so a burst of
// imports or processing steps costs a few saves rather than one each.
//
// A failed save is logged and its changes stay pending in the context; the
// next flush writes them. flush() at exit writes whatever is left.
//
// Thread rules: main thread only (it uses the main context and main timers).
#pragma once

#include <optional>

#include "library/model_context.h"
#include "platform/clock.h"

namespace klipora::processing {

class ProcessingSaveCoalescer {
 public:
  static constexpr int kMaxDirty = 25;
  static constexpr double kQuietWindow = 0.6;

  ProcessingSaveCoalescer(library::ModelContext& context, Timers& timers);
  ~ProcessingSaveCoalescer();
  ProcessingSaveCoalescer(const ProcessingSaveCoalescer&) = delete;
  ProcessingSaveCoalescer& operator=(const ProcessingSaveCoalescer&) = delete;

  void scheduleSave();
  // Saves now and cancels the pending timer.
  Status flush();

  int dirtyCount() const { return dirtyCount_; }
  int savesPerformed() const { return saves_; }

 private:
  library::ModelContext& context_;
  Timers& timers_;
  int dirtyCount_ = 0;
  int saves_ = 0;
  std::optional<TimerId> flushTask_;
};

}  // namespace klipora::processing
