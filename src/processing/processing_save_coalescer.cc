#include "processing/processing_save_coalescer.h"

namespace klipora::processing {

ProcessingSaveCoalescer::ProcessingSaveCoalescer(library::ModelContext& context, Timers& timers)
    : context_(context), timers_(timers) {}

ProcessingSaveCoalescer::~ProcessingSaveCoalescer() {
  if (flushTask_) timers_.cancel(*flushTask_);
}

void ProcessingSaveCoalescer::scheduleSave() {
  ++dirtyCount_;
  if (dirtyCount_ >= kMaxDirty) {
    (void)flush();
    return;
  }
  if (flushTask_) timers_.cancel(*flushTask_);
  flushTask_ = timers_.scheduleOnce(kQuietWindow, [this] {
    flushTask_.reset();
    (void)flush();
  });
}

Status ProcessingSaveCoalescer::flush() {
  if (flushTask_) {
    timers_.cancel(*flushTask_);
    flushTask_.reset();
  }
  dirtyCount_ = 0;
  if (!context_.hasChanges()) return Status::Ok();
  Status s = context_.save();
  ++saves_;
  if (!s.ok()) log::error("Processing", "save failed: %s", s.message().c_str());
  return s;
}

}  // namespace klipora::processing
