#include "platform/linux/tesseract_ocr_engine.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/resultiterator.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/linux/tesseract_languages.h"

namespace klipora {
namespace {

constexpr char kDebianTessdata[] = "/usr/share/tesseract-ocr/5/tessdata";

// Tesseract's LSTM code asks OpenMP for up to ten threads per parallel
// region. OMP_THREAD_LIMIT is read by libgomp when it loads, before main(),
// so instead each recognising thread turns nested and top-level parallelism
// off for itself. Looked up at run time: a Tesseract built without OpenMP
// has nothing to turn off.
void KeepThisThreadSingle() {
  using SetInt = void (*)(int);
  static const SetInt setMaxActiveLevels =
      reinterpret_cast<SetInt>(dlsym(RTLD_DEFAULT, "omp_set_max_active_levels"));
  static const SetInt setNumThreads =
      reinterpret_cast<SetInt>(dlsym(RTLD_DEFAULT, "omp_set_num_threads"));
  thread_local bool done = false;
  if (done) return;
  done = true;
  if (setMaxActiveLevels) setMaxActiveLevels(0);
  if (setNumThreads) setNumThreads(1);
}

bool IsValidLanguageCode(const std::string& code) {
  if (code.empty() || code.size() > 64 || code.find("..") != std::string::npos) return false;
  for (char c : code) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-' && c != '/') {
      return false;
    }
  }
  return true;
}

// The language models this process has read. Tesseract asks for a model's
// file on every engine it starts, and the daemon starts one per recognition
// that may run at once and replaces stuck ones; each file is read from disk
// once (again only when it changes there) and handed to every engine from
// memory. A model is a few megabytes; the engines parse their own copies.
class ModelFiles {
 public:
  static bool read(const char* path, std::vector<char>* data) {
    struct stat info {};
    if (stat(path, &info) != 0) return false;
    const Stamp stamp{static_cast<int64_t>(info.st_size), info.st_mtim.tv_sec,
                      info.st_mtim.tv_nsec};
    std::shared_ptr<const std::vector<char>> bytes;
    {
      std::lock_guard lock(mutex_);
      auto it = files_.find(path);
      if (it != files_.end() && it->second.stamp == stamp) bytes = it->second.bytes;
    }
    if (!bytes) {
      std::ifstream in(path, std::ios::binary);
      if (!in) return false;
      auto fresh = std::make_shared<std::vector<char>>(static_cast<size_t>(stamp.size));
      if (!in.read(fresh->data(), stamp.size)) return false;
      bytes = fresh;
      std::lock_guard lock(mutex_);
      files_[path] = {stamp, bytes};
    }
    *data = *bytes;
    return true;
  }

 private:
  struct Stamp {
    int64_t size;
    int64_t seconds;
    int64_t nanoseconds;
    bool operator==(const Stamp&) const = default;
  };
  struct File {
    Stamp stamp;
    std::shared_ptr<const std::vector<char>> bytes;
  };
  static inline std::mutex mutex_;
  static inline std::map<std::string, File> files_;
};

struct StopState {
  const std::function<bool()>* shouldStop = nullptr;
  bool stopped = false;
};

// Tesseract polls this between words.
bool CancelTrampoline(void* data, int /*words*/) {
  auto* state = static_cast<StopState*>(data);
  if (!state->stopped && state->shouldStop && *state->shouldStop && (*state->shouldStop)()) {
    state->stopped = true;
  }
  return state->stopped;
}

std::string TakeText(char* raw) {
  std::unique_ptr<char[]> owned(raw);
  std::string text = owned ? owned.get() : "";
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  size_t start = 0;
  while (start < text.size() && std::isspace(static_cast<unsigned char>(text[start]))) ++start;
  return text.substr(start);
}

class TesseractOcrEngine final : public OcrEngine {
 public:
  Status init(const std::string& tessdataDir, const std::string& languages) {
    // Tesseract's own chatter ("Estimating resolution…") would reach the
    // user's terminal; its failures come back as return codes anyway.
    std::vector<std::string> names = {"debug_file"};
    std::vector<std::string> values = {"/dev/null"};
    int rc = api_.Init(tessdataDir.c_str(), 0, languages.c_str(), tesseract::OEM_LSTM_ONLY,
                       nullptr, 0, &names, &values, false, &ModelFiles::read);
    if (rc != 0) {
      return Status::Unavailable("Tesseract could not load the language models \"" + languages +
                                 "\" from " + tessdataDir);
    }
    return Status::Ok();
  }

  ~TesseractOcrEngine() override { api_.End(); }

  Result<std::vector<OcrObservation>> recognize(const OcrRequest& request) override {
    try {
      return recognizeOrThrow(request);
    } catch (const std::bad_alloc&) {
      api_.Clear();
      return Err(Status::Internal("Tesseract ran out of memory"));
    } catch (const std::exception& e) {
      api_.Clear();
      return Err(Status::Internal(std::string("Tesseract failed: ") + e.what()));
    }
  }

 private:
  Result<std::vector<OcrObservation>> recognizeOrThrow(const OcrRequest& request) {
    const PixelImage* image = request.image;
    if (image == nullptr || image->empty() ||
        (image->channels != 1 && image->channels != 3 && image->channels != 4) ||
        image->pixels.size() < static_cast<size_t>(image->bytesPerRow()) * image->height) {
      return Err(Status::InvalidArgument("no pixels to recognise"));
    }
    OcrBox region = request.region;
    if (region == OcrBox{}) region = {0, 0, image->width, image->height};
    if (!Inside(region, {0, 0, image->width, image->height})) {
      return Err(Status::InvalidArgument("the region lies outside the image"));
    }
    for (const OcrBox& line : request.lines) {
      if (!Inside(line, region)) return Err(Status::InvalidArgument("a line lies outside the region"));
    }
    KeepThisThreadSingle();
    api_.SetPageSegMode(request.level == OcrLevel::accurate ? tesseract::PSM_AUTO
                        : request.level == OcrLevel::fast  ? tesseract::PSM_SPARSE_TEXT
                                                           : tesseract::PSM_SINGLE_LINE);
    // Text known to be dark on light gains nothing from a second reading of
    // each doubtful line inverted.
    api_.SetVariable("tessedit_do_invert", request.darkOnLight ? "0" : "1");
    const uint8_t* origin = image->row(region.top) + region.left * image->channels;
    api_.SetImage(origin, region.right - region.left, region.bottom - region.top,
                  image->channels, image->bytesPerRow());
    // Screen pixels; without a figure Tesseract guesses one and says so.
    api_.SetSourceResolution(kScreenResolution);

    StopState stop{&request.shouldStop, false};
    tesseract::ETEXT_DESC monitor;
    monitor.cancel = &CancelTrampoline;
    monitor.cancel_this = &stop;
    std::vector<OcrObservation> lines;
    auto read = [&]() -> Status {
      int rc = api_.Recognize(&monitor);
      if (stop.stopped) return Status::Cancelled("recognition was abandoned");
      if (rc != 0) return Status::Internal("Tesseract could not recognise the image");
      collect(request.characterBoxes, region, lines);
      return Status::Ok();
    };
    Status status;
    if (request.level != OcrLevel::lines) {
      status = read();
    } else {
      for (const OcrBox& line : request.lines) {
        api_.SetRectangle(line.left - region.left, line.top - region.top, line.right - line.left,
                          line.bottom - line.top);
        status = read();
        if (!status.ok()) break;
      }
    }
    api_.Clear();
    if (!status.ok()) return Err(status);
    return lines;
  }

  static bool Inside(const OcrBox& inner, const OcrBox& outer) {
    return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
           inner.bottom <= outer.bottom && inner.left < inner.right && inner.top < inner.bottom;
  }

  void collect(bool characterBoxes, const OcrBox& region, std::vector<OcrObservation>& lines) {
    std::unique_ptr<tesseract::ResultIterator> it(api_.GetIterator());
    if (!it) return;
    auto box = [&region](tesseract::PageIterator& at, tesseract::PageIteratorLevel level) {
      int l = 0, t = 0, r = 0, b = 0;
      at.BoundingBox(level, &l, &t, &r, &b);
      return OcrBox{l + region.left, t + region.top, r + region.left, b + region.top};
    };
    const auto kLine = tesseract::RIL_TEXTLINE;
    const auto kWord = tesseract::RIL_WORD;
    const auto kSymbol = tesseract::RIL_SYMBOL;
    bool inLine = false;  // the current line was kept (it has visible text)
    do {
      if (it->IsAtBeginningOf(kLine)) {
        inLine = false;
        if (it->Empty(kLine)) continue;
        OcrObservation line;
        line.text = TakeText(it->GetUTF8Text(kLine));
        if (line.text.empty()) continue;
        line.confidence = std::clamp(it->Confidence(kLine) / 100.0f, 0.0f, 1.0f);
        line.box = box(*it, kLine);
        lines.push_back(std::move(line));
        inLine = true;
      }
      if (!inLine) continue;
      if (it->IsAtBeginningOf(kWord) && !it->Empty(kWord)) {
        lines.back().words.push_back(box(*it, kWord));
      }
      if (characterBoxes && !it->Empty(kSymbol)) {
        std::string symbol = TakeText(it->GetUTF8Text(kSymbol));
        if (!symbol.empty()) lines.back().characters.push_back({symbol, box(*it, kSymbol)});
      }
    } while (it->Next(characterBoxes ? kSymbol : kWord));
  }

  static constexpr int kScreenResolution = 96;
  tesseract::TessBaseAPI api_;
};

}  // namespace

TesseractOcrEngineFactory::TesseractOcrEngineFactory(std::string tessdataDir)
    : tessdataDir_(std::move(tessdataDir)) {
  if (tessdataDir_.empty()) {
    const char* prefix = std::getenv("TESSDATA_PREFIX");
    tessdataDir_ = (prefix != nullptr && *prefix != '\0') ? prefix : kDebianTessdata;
  }
  while (tessdataDir_.size() > 1 && tessdataDir_.back() == '/') tessdataDir_.pop_back();
}

std::string TesseractOcrEngineFactory::debianPackageFor(const std::string& language) {
  for (const TesseractPackage& known : debianTesseractPackages()) {
    if (language == known.code) return known.package;
  }
  std::string name = language;
  if (name.rfind("script/", 0) == 0) name = "script-" + name.substr(7);
  for (char& c : name) {
    c = c == '_' || c == '/' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return "tesseract-ocr-" + name;
}

std::vector<OcrLanguage> TesseractOcrEngineFactory::languages() {
  std::map<std::string, OcrLanguage> byCode;
  for (const TesseractPackage& known : debianTesseractPackages()) {
    byCode[known.code] = {known.code, known.package, false};
  }
  // Models installed by other means (a tessdata folder of one's own) count
  // too; the orientation model reads no text.
  for (const std::string folder : {"", "script/"}) {
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(tessdataDir_ + "/" + folder, error)) {
      const std::filesystem::path& path = entry.path();
      if (path.extension() != ".traineddata" || access(path.c_str(), R_OK) != 0) continue;
      std::string code = folder + path.stem().string();
      if (code == "osd") continue;
      OcrLanguage& language = byCode[code];
      if (language.code.empty()) language = {code, debianPackageFor(code), false};
      language.installed = true;
    }
  }
  std::vector<OcrLanguage> out;
  for (auto& [code, language] : byCode) out.push_back(std::move(language));
  return out;
}

Result<std::unique_ptr<OcrEngine>> TesseractOcrEngineFactory::makeEngine(
    const std::vector<std::string>& languages) {
  std::vector<std::string> codes = languages.empty() ? std::vector<std::string>{"eng"} : languages;
  std::string joined;
  for (const std::string& code : codes) {
    if (!IsValidLanguageCode(code)) {
      return Err(Status::InvalidArgument("\"" + code + "\" is not a Tesseract language code"));
    }
    std::string model = tessdataDir_ + "/" + code + ".traineddata";
    if (access(model.c_str(), R_OK) != 0) {
      return Err(Status::NotFound("the text recognition language \"" + code +
                                  "\" is not installed (no " + model +
                                  "); install the Debian package " + debianPackageFor(code)));
    }
    joined += (joined.empty() ? "" : "+") + code;
  }
  try {
    auto engine = std::make_unique<TesseractOcrEngine>();
    RETURN_IF_ERROR(engine->init(tessdataDir_, joined));
    return std::unique_ptr<OcrEngine>(std::move(engine));
  } catch (const std::exception& e) {
    return Err(Status::Unavailable(std::string("Tesseract could not start: ") + e.what()));
  }
}

}  // namespace klipora
