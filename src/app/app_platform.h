// AppPlatform: every platform service a klipora process may use, as
// interfaces. The executable's main creates the real ones once and hands
// this bundle down; commands, the daemon and the engine reach the operating
// system only through it.
//
// Thread rules: as each interface says. The bundle itself is plain
// references; its creator keeps them alive for the life of the process.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/control_channel.h"
#include "platform/file_system.h"
#include "platform/folder_watch.h"
#include "platform/image_codec.h"
#include "platform/image_detector.h"
#include "platform/log.h"
#include "platform/main_loop.h"
#include "platform/mount_table_watch.h"
#include "platform/ocr_engine.h"
#include "platform/process_lock.h"

namespace klipora::app {

struct AppPlatform {
  FileSystem& fileSystem;
  ImageCodec& imageCodec;
  Clock& clock;
  MainLoop& mainLoop;
  Executor& background;
  Executor& recognition;       // one thread per recognition engine
  Executor& freshRecognition;  // one thread for screenshots just taken
  Executor& labels;            // one serial thread
  OcrEngineFactory& ocrEngines;
  ImageDetector& imageDetector;  // faces, people, QR codes, lines
  ProcessLocks& processLocks;
  ControlChannelClient& controlClient;
  StopSignals& stopSignals;
  std::function<std::unique_ptr<ControlChannelServer>()> makeControlServer;
  std::function<std::unique_ptr<MountTableWatch>()> makeMountWatch;
  // The file events of watched folders, on the main loop.
  std::function<std::unique_ptr<FolderWatch>()> makeFolderWatch = nullptr;
  // The log file of a library and the classifier's trail beside it.
  std::function<std::shared_ptr<log::LogSink>(const std::string& logPath,
                                              const std::string& classifyPath)>
      makeFileLogSink;
  // `path` made absolute against the working directory (a path given on the
  // command line means the same to the daemon).
  std::function<std::string(const std::string& path)> absolutePath;
  // Reads an environment variable; null when unset.
  std::function<const char*(const char*)> getenv;
  int processID = 0;
};

}  // namespace klipora::app
