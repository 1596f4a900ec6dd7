// Feeds arbitrary bytes as defaults.json (a file the user may edit by hand)
// to the defaults and to what reads them at start: the pause of watching,
// the model server, the reading languages. None may crash, and a file that
// loads must take a change and read back the same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ingestion/watcher_pause_schedule.h"
#include "platform/language_model.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/user_defaults.h"
#include "processing/ocr_service.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace klipora;
  testing::MemoryFileSystem fs;
  testing::ManualClock clock;
  const std::string path = "/support/defaults.json";
  if (!fs.createDirectories("/support").ok() ||
      !fs.writeFileAtomically(path, std::string_view(reinterpret_cast<const char*>(data), size))
           .ok()) {
    std::abort();
  }
  UserDefaults defaults(fs, path);
  const bool loaded = defaults.load().ok();
  ingestion::WatcherPauseSchedule pause(defaults, clock, &clock);
  pause.load();
  (void)pause.statusDescription();
  (void)readModelEndpoint(defaults);
  (void)processing::recognitionLanguages(defaults);
  if (loaded) {
    if (!defaults.setDouble("fuzz.check", 1.5).ok()) std::abort();
    UserDefaults again(fs, path);
    if (!again.load().ok() || again.doubleForKey("fuzz.check") != 1.5) {
      std::fprintf(stderr, "a change to a loaded defaults file did not read back\n");
      std::abort();
    }
  }
  return 0;
}
