// LinuxPlatform: the real platform services of one process, created once by
// an executable's main and handed down as interfaces.
#pragma once

#include "platform/linux/main_loop.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/vips_image_codec.h"

namespace klipora {

struct LinuxPlatform {
  PosixFileSystem fileSystem;
  VipsImageCodec imageCodec;
  SystemClock clock;
  AsioMainLoop mainLoop;
  // Background work: two threads, one per core of the machines we aim at.
  ThreadPoolExecutor background{2};
};

}  // namespace klipora
