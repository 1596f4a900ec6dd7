// Feeds arbitrary lines to the control channel's request handler, as a
// client of the daemon's socket could send them, over a small store with two
// items and one in the trash. No line may crash it, and every line must get
// exactly one reply that is a JSON object with "ok".
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/control_requests.h"
#include "library/model_container.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace {

using namespace klipora;

constexpr char kRoot[] = "/library";
constexpr const char* kIds[] = {"6F1C2A4E-0000-4000-8000-000000000001",
                                "6F1C2A4E-0000-4000-8000-000000000002",
                                "6F1C2A4E-0000-4000-8000-000000000003"};

std::unique_ptr<library::ModelContext> SmallStore(testing::MemoryFileSystem& fs) {
  auto db = library::Database::open(":memory:");
  if (!db || !library::migrateToCurrentSchema(**db).ok()) std::abort();
  auto context = std::make_unique<library::ModelContext>(std::move(*db));
  if (!fs.createDirectories(std::string(kRoot) + "/Originals").ok()) std::abort();
  int n = 0;
  for (const char* id : kIds) {
    auto item = std::make_shared<library::ScreenshotItem>();
    item->id = *UUID::Parse(id);
    item->libraryPath = std::string(kRoot) + "/Originals/" + std::to_string(n) + ".png";
    item->checksum = std::string(64, static_cast<char>('a' + n));
    if (!fs.writeFileAtomically(item->libraryPath, testing::FakeImageCodec::makeImage(8, 8)).ok()) {
      std::abort();
    }
    if (n == 2) {
      item->deleted = true;
      item->deletedAt = Date::fromSecondsSince1970(1'690'000'000);
    }
    context->insert(item);
    ++n;
  }
  if (!context->save().ok()) std::abort();
  return context;
}

// One store for the whole run: opening and migrating a store per input would
// make the run a hundred times slower. Requests that change it (trash,
// delete) leave it changed for the next input, as a real daemon would.
struct Target {
  testing::MemoryFileSystem fs;
  testing::FakeImageCodec codec;
  testing::ManualClock clock;
  UserDefaults defaults{fs, "/support/defaults.json"};
  library::NoMarkupEdits edits;
  std::unique_ptr<library::ModelContext> context = SmallStore(fs);
  library::StorageService storage{fs, codec, kRoot};
  app::ControlRequestHandler handler{app::RequestTarget{
      .context = *context,
      .markupEdits = edits,
      .clock = clock,
      .timers = clock,
      .userDefaults = defaults,
      .coordinator = nullptr,
      .storage = &storage,
      .storePath = ":memory:",
      .libraryRoot = kRoot,
      .fallbackNotice = std::nullopt,
      .daemonPid = std::nullopt,
  }};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto* target = new Target;
  int replies = 0;
  target->handler.handleLine(std::string(reinterpret_cast<const char*>(data), size),
                             [&](std::string reply) {
                               ++replies;
                               auto json = app::Json::parse(reply, nullptr, false);
                               if (!json.is_object() || !json.contains("ok")) {
                                 std::fprintf(stderr, "reply without \"ok\": %s\n", reply.c_str());
                                 std::abort();
                               }
                             });
  if (replies != 1) {
    std::fprintf(stderr, "%d replies to one request\n", replies);
    std::abort();
  }
  return 0;
}
