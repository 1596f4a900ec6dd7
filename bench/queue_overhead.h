// The processing queue's own cost: many items through the real queue, a real
// store on disk and the real save coalescer and threads, with analyses that
// answer at once (their text, labels and feature print cost nothing), so
// that what remains is the queue's bookkeeping, its store reads and writes,
// category resolution and enrichment.
#pragma once

#include <string>

#include "platform/linux/linux_platform.h"

namespace klipora::bench {

struct QueueOverhead {
  int items = 0;
  int processed = 0;
  double seconds = 0;  // first enqueue to the last item processed
  int saves = 0;
  bool finished = false;
};

// Creates a store in `folder` with `items` pending items, then runs them all
// through the bulk lane on the platform's main loop (for at most
// `limitSeconds`).
Result<QueueOverhead> MeasureQueueOverhead(LinuxPlatform& platform, const std::string& folder,
                                           int items, double limitSeconds);

}  // namespace klipora::bench
