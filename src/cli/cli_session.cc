#include "cli/cli_session.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "cli/command_registry.h"
#include "library/record_json.h"
#include "library/settings_store.h"

namespace klipora::cli {

CliSession::CliSession(app::AppPlatform& platform)
    : platform_(platform),
      markupEdits_(platform.fileSystem),
      processing_{.ocrEngines = platform.ocrEngines,
                  .recognition = platform.recognition,
                  .labels = platform.labels,
                  .makeLanguageModel = platform.makeLanguageModel,
                  .lexicon = platform.lexicon} {}

app::AppEnvironment CliSession::environment() {
  return app::AppEnvironment{
      .fileSystem = platform_.fileSystem,
      .imageCodec = platform_.imageCodec,
      .clock = platform_.clock,
      .timers = platform_.mainLoop,
      .mainLoop = platform_.mainLoop,
      .background = platform_.background,
      .userDefaults = *defaults_,
      .markupEdits = markupEdits_,
      .mountWatch = nullptr,
      .supportFolder = paths().supportFolder,
      .defaultLibraryRoot = paths().defaultLibraryRoot,
      .processing = &processing_,
  };
}

CliSession::~CliSession() {
  if (fileSink_) log::removeSink(fileSink_);
}

const AppPaths& CliSession::paths() {
  if (!paths_) {
    paths_ = resolveAppPaths(platform_.getenv, homeOption);
  }
  return *paths_;
}

bool CliSession::openLibrary() {
  if (opened_) return true;
  auto& fs = platform_.fileSystem;
  auto storePath = library::KliporaModelContainer::storeURL(fs, paths());
  if (!storePath) {
    std::cerr << "klipora: cannot create " << paths().supportFolder << ": "
              << storePath.error().message() << "\n";
    exitCode = kExitStoreUnavailable;
    return false;
  }
  auto container = library::KliporaModelContainer::make(fs, platform_.clock, *storePath);
  if (!container) {
    std::cerr << library::KliporaModelContainer::fatalMessage(*storePath, container.error())
              << "\n";
    exitCode = kExitStoreUnavailable;
    return false;
  }
  container_ = *container;
  auto settings = library::fetchOrCreateSettings(container_->mainContext());
  if (!settings) {
    std::cerr << "klipora: cannot read the settings: " << settings.error().message() << "\n";
    exitCode = kExitStoreUnavailable;
    return false;
  }
  settings_ = *settings;
  defaults_ = std::make_unique<UserDefaults>(fs, paths().defaultsPath);
  (void)defaults_->load();  // a broken file is logged and read as empty
  root_ = library::resolveLibraryRoot(fs, settings_->libraryFolder, paths().defaultLibraryRoot);
  storage_ = std::make_unique<library::StorageService>(fs, platform_.imageCodec, root_.root);
  if (Status s = storage_->createLibraryStructure(); !s.ok()) {
    std::cerr << "klipora: cannot prepare the library folder " << root_.root << ": "
              << s.message() << "\n";
    exitCode = kExitFailure;
    return false;
  }
  fileSink_ = platform_.makeFileLogSink(joinPath(storage_->diagnosticsFolder(), "klipora.log"),
                                        joinPath(storage_->diagnosticsFolder(), "classify.log"));
  log::addSink(fileSink_);
  opened_ = true;
  return true;
}

std::optional<std::vector<std::shared_ptr<library::ScreenshotItem>>> fetchItems(
    CliSession& session, const std::vector<std::string>& ids) {
  std::vector<UUID> uuids;
  for (const auto& id : ids) {
    auto uuid = UUID::Parse(id);
    if (!uuid) {
      std::cerr << "klipora: \"" << id << "\" is not an item id\n";
      session.exitCode = kExitUsage;
      return std::nullopt;
    }
    uuids.push_back(*uuid);
  }
  if (!session.openLibrary()) return std::nullopt;
  std::vector<std::shared_ptr<library::ScreenshotItem>> items;
  for (const auto& uuid : uuids) {
    auto item = session.context().fetchByKey<library::ScreenshotItem>(uuid.uuidString());
    if (!item) {
      std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
      session.exitCode = kExitFailure;
      return std::nullopt;
    }
    if (!*item) {
      std::cerr << "klipora: no item with id " << uuid.uuidString() << "; nothing changed\n";
      session.exitCode = kExitFailure;
      return std::nullopt;
    }
    items.push_back(*item);
  }
  return items;
}

void printJson(const nlohmann::ordered_json& json) {
  std::cout << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
}

}  // namespace klipora::cli
