#include "platform/app_paths.h"

#include "platform/file_system.h"

namespace klipora {

AppPaths resolveAppPaths(const std::function<const char*(const char*)>& getenv,
                         const std::string& homeOverride) {
  auto nonEmpty = [&](const char* name) -> std::string {
    const char* v = getenv(name);
    return v ? std::string(v) : std::string();
  };
  std::string folder = homeOverride;
  if (folder.empty()) folder = nonEmpty("KLIPORA_HOME");
  if (folder.empty()) {
    std::string data = nonEmpty("XDG_DATA_HOME");
    if (data.empty() || data.front() != '/') {
      // The XDG rules ignore relative values.
      std::string home = nonEmpty("HOME");
      if (home.empty()) home = "/tmp";
      data = joinPath(home, ".local/share");
    }
    folder = joinPath(data, "Klipora");
  }
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return AppPaths{folder, joinPath(folder, "Klipora.store"), joinPath(folder, "defaults.json"),
                  joinPath(folder, "Library")};
}

}  // namespace klipora
