// LinuxPlatform: the real platform services of one process, created once by
// an executable's main and handed down as interfaces.
#pragma once

#include "platform/linux/asio_stop_signals.h"
#include "platform/linux/flock_process_locks.h"
#include "platform/linux/main_loop.h"
#include "platform/linux/opencv_image_detector.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/tesseract_ocr_engine.h"
#include "platform/linux/unix_socket_control_channel.h"
#include "platform/linux/vips_image_codec.h"

namespace klipora {

struct LinuxPlatform {
  PosixFileSystem fileSystem;
  VipsImageCodec imageCodec;
  SystemClock clock;
  AsioMainLoop mainLoop;
  // Background work: two threads, one per core of the machines we aim at.
  ThreadPoolExecutor background{2};
  // Text recognition: one thread per engine of the recognition service.
  ThreadPoolExecutor recognition{2};
  // Text recognition of screenshots just taken: one thread, with an engine of
  // its own, so that they never wait behind a bulk import.
  ThreadPoolExecutor freshRecognition{1};
  // Image labels: one serial thread.
  ThreadPoolExecutor labels{1};
  TesseractOcrEngineFactory ocrEngines;
  OpenCvImageDetector imageDetector;
  FlockProcessLocks processLocks;
  UnixSocketControlClient controlClient;
  AsioStopSignals stopSignals{mainLoop.context()};
};

}  // namespace klipora
