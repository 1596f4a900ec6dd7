// GioDesktopSettings: the Linux DesktopSettings, read through GIO's
// GSettings. A schema is looked up before it is opened: opening one that is
// not installed ends the process.
//
// Thread rules: as DesktopSettings.
#pragma once

#include "platform/desktop_settings.h"

namespace klipora {

class GioDesktopSettings final : public DesktopSettings {
 public:
  // The installed schemas and the desktop's settings store.
  GioDesktopSettings() = default;
  // Schemas compiled in `schemaFolder` (on top of the installed ones) and
  // values from the key file `keyFile`: a store of its own, for tests.
  GioDesktopSettings(std::string schemaFolder, std::string keyFile)
      : schemaFolder_(std::move(schemaFolder)), keyFile_(std::move(keyFile)) {}

  std::optional<std::string> text(const std::string& schema, const std::string& key) override;

 private:
  std::string schemaFolder_;
  std::string keyFile_;
};

}  // namespace klipora
