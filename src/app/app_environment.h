// AppEnvironment: the platform services and places a running library uses,
// handed to the coordinator by the program that creates it (the real ones
// from `klipora run`, fakes from tests). Plain bundle of references; the
// creator keeps every referenced object alive longer than the coordinator.
#pragma once

#include <functional>
#include <string>

#include "library/markup_edit_cleaner.h"
#include "platform/active_application.h"
#include "platform/clock.h"
#include "platform/desktop_settings.h"
#include "platform/file_system.h"
#include "platform/folder_watch.h"
#include "platform/image_codec.h"
#include "platform/language_model.h"
#include "platform/lexicon.h"
#include "platform/mount_table_watch.h"
#include "platform/ocr_engine.h"
#include "platform/session_activity_watch.h"
#include "platform/text_embedder.h"
#include "platform/user_defaults.h"

namespace klipora::intelligence {
class ModelArbiter;
}

namespace klipora::app {

// What processing needs beyond the basics: the text recogniser and threads
// for it. Without it (a test of start-up alone) the library runs unprocessed.
struct ProcessingPlatform {
  OcrEngineFactory& ocrEngines;
  Executor& recognition;  // at least two threads, one per engine
  Executor& labels;       // one thread
  // One thread with an engine of its own for the priority lane, so a
  // screenshot just taken is read at once; null: it shares `recognition`.
  Executor* freshRecognition = nullptr;
  // Null: the built-in hashed n-gram embedder.
  TextEmbedder* embedder = nullptr;
  // Null: the classifier over the model that makeLanguageModel makes, or no
  // language model at all when that is empty too.
  intelligence::ModelArbiter* arbiter = nullptr;
  LanguageModelFactory makeLanguageModel = nullptr;
  // Nouns and adjectives for the keywords of user categories; null: every
  // word counts.
  Lexicon* lexicon = nullptr;
};

struct AppEnvironment {
  FileSystem& fileSystem;
  ImageCodec& imageCodec;
  Clock& clock;
  Timers& timers;
  Executor& mainLoop;
  Executor& background;
  UserDefaults& userDefaults;
  library::MarkupEditCleaner& markupEdits;
  // Null where mount changes cannot be watched; the health probe still runs.
  MountTableWatch* mountWatch = nullptr;
  // Null where folders are not watched (commands that only touch the store).
  FolderWatch* folderWatch = nullptr;
  // Null where the capturing application of a screenshot is not asked.
  ActiveApplication* activeApplication = nullptr;
  // Null where the user's return (unlock, wake) is not watched; the sweeps
  // at start and every few minutes still run.
  SessionActivityWatch* sessionWatch = nullptr;
  // Null where no desktop settings are read (where screenshot tools keep
  // their save folder).
  DesktopSettings* desktopSettings = nullptr;
  // Reads an environment variable (HOME and the screenshot tools' own);
  // null when unset.
  std::function<const char*(const char*)> getenv = nullptr;
  std::string supportFolder;       // holds the store and the user defaults
  std::string defaultLibraryRoot;  // the library root when none is chosen
  ProcessingPlatform* processing = nullptr;
};

}  // namespace klipora::app
