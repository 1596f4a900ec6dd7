// Choosing the library root for a session: the user's chosen folder when it
// exists, is a folder and is writable; otherwise the default root, with a
// notice saying why (tested in the order missing, notADirectory,
// notWritable). The choice lasts for the session; the setting is untouched.
#pragma once

#include <optional>
#include <string>

#include "platform/file_system.h"

namespace klipora::library {

struct LibraryFallbackNotice {
  enum class Reason { missing, notADirectory, notWritable };
  std::string configuredPath;
  Reason reason;
};
const char* reasonName(LibraryFallbackNotice::Reason reason);

struct LibraryRootResolution {
  std::string root;
  std::optional<LibraryFallbackNotice> fallbackNotice;
};

// Logs "Custom library location unavailable at … Falling back to default for
// this session." when it falls back.
LibraryRootResolution resolveLibraryRoot(FileSystem& fs,
                                         const std::optional<std::string>& configured,
                                         const std::string& defaultRoot);

}  // namespace klipora::library
