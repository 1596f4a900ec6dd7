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

#include "platform/active_application.h"
#include "platform/clock.h"
#include "platform/control_channel.h"
#include "platform/desktop_settings.h"
#include "platform/file_system.h"
#include "platform/folder_watch.h"
#include "platform/image_codec.h"
#include "platform/image_detector.h"
#include "platform/language_model.h"
#include "platform/lexicon.h"
#include "platform/log.h"
#include "platform/main_loop.h"
#include "platform/mount_table_watch.h"
#include "platform/ocr_engine.h"
#include "platform/process_lock.h"
#include "platform/service_manager.h"
#include "platform/session_activity_watch.h"

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
  // Which application the user looks at (X11, Sway, Hyprland).
  std::function<std::unique_ptr<ActiveApplication>()> makeActiveApplication = nullptr;
  // Says when the user comes back to the computer (logind over D-Bus).
  std::function<std::unique_ptr<SessionActivityWatch>()> makeSessionWatch = nullptr;
  // The log file of a library and the classifier's trail beside it.
  std::function<std::shared_ptr<log::LogSink>(const std::string& logPath,
                                              const std::string& classifyPath)>
      makeFileLogSink;
  // `path` made absolute against the working directory (a path given on the
  // command line means the same to the daemon).
  std::function<std::string(const std::string& path)> absolutePath;
  // The model server's client; it sends nothing while no endpoint is set.
  LanguageModelFactory makeLanguageModel = nullptr;
  // Nouns and adjectives of English; null: every word counts.
  Lexicon* lexicon = nullptr;
  // The desktop's settings (GSettings); null: none are read.
  DesktopSettings* desktopSettings = nullptr;
  // Reads an environment variable; null when unset.
  std::function<const char*(const char*)> getenv;
  int processID = 0;
  // The user's service manager (systemd); null where there is none to use.
  ServiceManager* serviceManager = nullptr;
  // The absolute path of the running klipora binary, for the units that start it.
  std::string executablePath;
};

}  // namespace klipora::app
