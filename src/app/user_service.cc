#include "app/user_service.h"

namespace klipora::app {
namespace {

// One word of an ExecStart= line: quoted when it holds anything systemd
// would split or expand.
std::string unitWord(const std::string& word) {
  if (!word.empty() && word.find_first_of(" \t\"'\\%$;") == std::string::npos) return word;
  std::string out = "\"";
  for (char c : word) {
    if (c == '"' || c == '\\') out += '\\';
    if (c == '%') out += '%';  // specifiers
    if (c == '$') out += '$';  // variables
    out += c;
  }
  return out + "\"";
}

// One argument of a desktop entry's Exec= key (quoting rules of the
// desktop entry specification; the backslash is doubled again because the
// value is a string).
std::string execWord(const std::string& word) {
  if (!word.empty() && word.find_first_of(" \t\n\"'\\><~|&;$*?#()`%") == std::string::npos) {
    return word;
  }
  std::string out = "\"";
  for (char c : word) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') out += "\\\\";
    if (c == '%') out += '%';
    out += c;
  }
  return out + "\"";
}

std::string commandLine(const ServiceCommand& command, std::string (*quote)(const std::string&),
                        const std::string& tail) {
  std::string line = quote(command.binary);
  if (!command.homeOption.empty()) line += " --home " + quote(command.homeOption);
  return line + " " + tail;
}

}  // namespace

std::string serviceUnitText(const ServiceCommand& command) {
  return "[Unit]\n"
         "Description=Klipora screenshot library\n"
         "Documentation=man:klipora(1)\n"
         "\n"
         "[Service]\n"
         "Type=notify\n"
         "NotifyAccess=main\n"
         "ExecStart=" + commandLine(command, unitWord, "run") + "\n"
         "Restart=on-failure\n"
         "RestartSec=5\n"
         "TimeoutStopSec=15\n"
         "\n"
         "[Install]\n"
         "WantedBy=default.target\n";
}

std::string autostartEntryText(const ServiceCommand& command) {
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=Klipora\n"
         "Comment=Screenshot library: imports and reads new screenshots\n"
         "Exec=" + commandLine(command, execWord, "run --quiet --login") + "\n"
         "Icon=camera-photo\n"
         "Terminal=false\n"
         "NoDisplay=true\n"
         "X-GNOME-Autostart-enabled=true\n"
         "X-systemd-skip=true\n";
}

UserServicePaths userServicePaths(const char* xdgConfigHome, const char* home) {
  std::string config;
  if (xdgConfigHome && xdgConfigHome[0] == '/') {
    config = xdgConfigHome;
  } else if (home && *home) {
    config = joinPath(home, ".config");
  } else {
    return {};
  }
  return {joinPath(joinPath(joinPath(config, "systemd"), "user"), kServiceUnitName),
          joinPath(joinPath(config, "autostart"), kAutostartEntryName)};
}

UserService::UserService(FileSystem& fs, ServiceManager& manager, UserServicePaths paths)
    : fs_(fs), manager_(manager), paths_(std::move(paths)) {}

Status UserService::enable(const ServiceCommand& command) {
  if (paths_.unitPath.empty()) {
    return Status::FailedPrecondition("neither HOME nor XDG_CONFIG_HOME is set");
  }
  for (const auto& [path, text] : {std::pair{paths_.unitPath, serviceUnitText(command)},
                                   std::pair{paths_.autostartPath, autostartEntryText(command)}}) {
    RETURN_IF_ERROR(fs_.createDirectories(deletingLastPathComponent(path)).WithContext(path));
    RETURN_IF_ERROR(fs_.writeFileAtomically(path, text).WithContext(path));
  }
  return manager_.enableUnit(paths_.unitPath);
}

Status UserService::disable() {
  if (paths_.unitPath.empty()) {
    return Status::FailedPrecondition("neither HOME nor XDG_CONFIG_HOME is set");
  }
  Status disabled = manager_.disableUnit(paths_.unitPath);
  for (const auto& path : {paths_.unitPath, paths_.autostartPath}) {
    if (Status s = fs_.removeFile(path); !s.ok() && s.code() != Status::Code::kNotFound) {
      return s.WithContext(path);
    }
  }
  return disabled;
}

UserServiceStatus UserService::status() {
  UserServiceStatus out;
  if (paths_.unitPath.empty()) {
    out.inUse = "none";
    return out;
  }
  out.unitInstalled = fs_.exists(paths_.unitPath);
  out.autostartInstalled = fs_.exists(paths_.autostartPath);
  out.unit = manager_.unitState(paths_.unitPath);
  if (out.unit.managerRunning && out.unitInstalled && out.unit.enabled) {
    out.inUse = "systemd";
  } else if (out.autostartInstalled) {
    out.inUse = "autostart";
  } else if (out.unitInstalled && out.unit.enabled) {
    out.inUse = "systemd";  // for a session that starts a user instance
  } else {
    out.inUse = "none";
  }
  return out;
}

}  // namespace klipora::app
