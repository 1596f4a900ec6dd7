#include "library/library_root.h"

#include "platform/log.h"

namespace klipora::library {

const char* reasonName(LibraryFallbackNotice::Reason reason) {
  switch (reason) {
    case LibraryFallbackNotice::Reason::missing: return "missing";
    case LibraryFallbackNotice::Reason::notADirectory: return "notADirectory";
    case LibraryFallbackNotice::Reason::notWritable: return "notWritable";
  }
  return "";
}

LibraryRootResolution resolveLibraryRoot(FileSystem& fs,
                                         const std::optional<std::string>& configured,
                                         const std::string& defaultRoot) {
  if (!configured || configured->empty()) return {defaultRoot, std::nullopt};
  auto attributes = fs.attributes(*configured);
  bool exists = attributes.has_value();
  bool isDirectory = exists && attributes->isDirectory;
  bool writable = isDirectory && fs.isWritableDirectory(*configured);
  if (writable) return {*configured, std::nullopt};
  log::info("",
            "Custom library location unavailable at %s (exists=%s, dir=%s, writable=%s). Falling "
            "back to default for this session.",
            configured->c_str(), log::yesNo(exists), log::yesNo(isDirectory), log::yesNo(writable));
  auto reason = !exists        ? LibraryFallbackNotice::Reason::missing
                : !isDirectory ? LibraryFallbackNotice::Reason::notADirectory
                               : LibraryFallbackNotice::Reason::notWritable;
  return {defaultRoot, LibraryFallbackNotice{*configured, reason}};
}

}  // namespace klipora::library
