// The Linux platform as the window's process uses it: the real services
// the app layer asks for, bundled as an AppPlatform. The window never runs
// the engine (the daemon does), so the services of watching (folder, mount
// and session watches, the active application) are left out. Included only
// by the program's main and by tests.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "app/app_platform.h"
#include "platform/linux/http_language_model.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/log_sinks.h"

namespace klipora::desktop {

struct DesktopPlatform {
  LinuxPlatform linux;
  app::AppPlatform platform{
      .fileSystem = linux.fileSystem,
      .imageCodec = linux.imageCodec,
      .clock = linux.clock,
      .mainLoop = linux.mainLoop,
      .background = linux.background,
      .recognition = linux.recognition,
      .freshRecognition = linux.freshRecognition,
      .labels = linux.labels,
      .ocrEngines = linux.ocrEngines,
      .imageDetector = linux.imageDetector,
      .processLocks = linux.processLocks,
      .controlClient = linux.controlClient,
      .stopSignals = linux.stopSignals,
      .makeControlServer = nullptr,
      .makeMountWatch = nullptr,
      .makeFileLogSink = [](const std::string& logPath,
                            const std::string& classifyPath) -> std::shared_ptr<log::LogSink> {
        return std::make_shared<FileLogSink>(logPath, classifyPath);
      },
      .absolutePath = [](const std::string& path) -> std::string {
        std::error_code ignored;
        auto absolute = std::filesystem::absolute(path, ignored);
        return absolute.empty() ? path : absolute.lexically_normal().string();
      },
      .makeLanguageModel = [](std::function<ModelEndpoint()> endpoint)
          -> std::unique_ptr<LanguageModel> {
        return std::make_unique<HttpLanguageModel>(std::move(endpoint));
      },
      .getenv = [](const char* name) -> const char* { return std::getenv(name); },
      .processID = static_cast<int>(::getpid()),
      .serviceManager = nullptr,
      .executablePath = {},
  };
};

}  // namespace klipora::desktop
