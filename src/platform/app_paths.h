// Where Klipora keeps its files: the support folder (store, user defaults) and
// the default library root. Resolution: $KLIPORA_HOME if set, else
// $XDG_DATA_HOME/Klipora, else ~/.local/share/Klipora. Pure; thread-safe.
#pragma once

#include <functional>
#include <string>

namespace klipora {

struct AppPaths {
  std::string supportFolder;       // …/Klipora
  std::string storePath;           // …/Klipora/Klipora.store
  std::string defaultsPath;        // …/Klipora/defaults.json
  std::string defaultLibraryRoot;  // …/Klipora/Library
};

// `getenv` looks up an environment variable (nullptr when unset); tests pass
// their own. `homeOverride`, when non-empty, plays the part of $KLIPORA_HOME.
AppPaths resolveAppPaths(const std::function<const char*(const char*)>& getenv,
                         const std::string& homeOverride = "");

}  // namespace klipora
