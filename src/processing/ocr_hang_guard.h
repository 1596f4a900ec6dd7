// raceHangGuard: runs one recognition on a thread of its own and waits for
// it until a deadline on the clock. A recogniser checks its cancel callback
// between words, but not everywhere: stuck inside page layout it never asks,
// and such a thread cannot be stopped, only left. Past the deadline the
// caller gets Cancelled at once and the leased engine goes with the stuck
// thread, which frees it if the recogniser ever returns; the pool counts the
// engine gone at once and loads a fresh one when it is next needed.
//
// `recognize` runs on the new thread and may outlive the caller: it must own
// everything it reads (the image, the request) and not touch the service.
// The cancel callback it is given answers true once the deadline has passed
// or the caller has left.
//
// Thread rules: call from any thread but the main one (it blocks).
#pragma once

#include <functional>
#include <vector>

#include "platform/clock.h"
#include "platform/ocr_engine.h"
#include "processing/ocr_engine_pool.h"

namespace klipora::processing {

using GuardedRecognition = std::function<Result<std::vector<OcrObservation>>(
    OcrEngine& engine, std::function<bool()> shouldStop)>;

Result<std::vector<OcrObservation>> raceHangGuard(OCREnginePool::Lease& lease, Clock& clock,
                                                  double deadline, GuardedRecognition recognize);

}  // namespace klipora::processing
