// klipora: the command-line face of the library, and (`klipora run`) its daemon.
// The one place that creates the real Linux platform; everything below is
// handed it as interfaces.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "app/app_platform.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "platform/linux/desktop_active_application.h"
#include "platform/linux/gio_desktop_settings.h"
#include "platform/linux/http_language_model.h"
#include "platform/linux/inotify_folder_watch.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/log_sinks.h"
#include "platform/linux/logind_session_watch.h"
#include "platform/linux/malloc_tuning.h"
#include "platform/linux/proc_mount_info_watch.h"
#include "platform/linux/systemd_service_manager.h"
#include "platform/linux/wordnet_lexicon.h"

int main(int argc, char** argv) {
  using namespace klipora;
  limitMallocArenas();
  // Lines reach a pipe as they are written, so a killed command has printed
  // everything it finished.
  std::cout.setf(std::ios::unitbuf);
  auto stderrSink = std::make_shared<StderrLogSink>(log::Level::kWarning);
  log::addSink(stderrSink);

  LinuxPlatform linux;
  WordNetLexicon lexicon;
  GioDesktopSettings desktopSettings;
  SystemdServiceManager serviceManager([](const char* name) { return std::getenv(name); });
  std::error_code noPath;
  const std::string executable = std::filesystem::read_symlink("/proc/self/exe", noPath).string();
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
      .makeControlServer = [&linux]() -> std::unique_ptr<ControlChannelServer> {
        return std::make_unique<UnixSocketControlServer>(linux.mainLoop.context());
      },
      .makeMountWatch = [&linux]() -> std::unique_ptr<MountTableWatch> {
        return std::make_unique<ProcMountInfoWatch>(linux.mainLoop);
      },
      .makeFolderWatch = [&linux]() -> std::unique_ptr<FolderWatch> {
        return std::make_unique<InotifyFolderWatch>(linux.mainLoop.context());
      },
      .makeActiveApplication = []() -> std::unique_ptr<ActiveApplication> {
        return std::make_unique<DesktopActiveApplication>(
            [](const char* name) -> const char* { return std::getenv(name); });
      },
      .makeSessionWatch = [&linux]() -> std::unique_ptr<SessionActivityWatch> {
        const char* session = std::getenv("XDG_SESSION_ID");
        return std::make_unique<LogindSessionWatch>(linux.mainLoop, "", session ? session : "");
      },
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
      .lexicon = &lexicon,
      .desktopSettings = &desktopSettings,
      .getenv = [](const char* name) -> const char* { return std::getenv(name); },
      .processID = static_cast<int>(::getpid()),
      .serviceManager = &serviceManager,
      .executablePath = executable.empty() ? std::string(argv[0]) : executable,
  };

  cli::CliSession session(platform);
  CLI::App app{"Klipora: a screenshot library for Linux desktops", "klipora"};
  app.set_version_flag("--version", "klipora " KLIPORA_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  app.add_option("--home", session.homeOption,
                 "Library support folder (default: $KLIPORA_HOME, else "
                 "$XDG_DATA_HOME/Klipora)");
  cli::addRegisteredCommands(app, session);
  int code;
  try {
    app.parse(argc, argv);
    code = session.exitCode;
  } catch (const CLI::CallForHelp& e) {
    code = app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    code = app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    code = app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    code = cli::kExitUsage;
  }
  return code;
}
