// OcrEngine: one loaded text recogniser. Given 8-bit pixels and a level it
// returns the text lines it found, each with its confidence, its box and, on
// request, the box of every character. The real engine (TesseractOcrEngine,
// platform/linux) runs Tesseract's LSTM recogniser on one thread.
//
// Thread rules: an OcrEngine is not thread-safe; use each instance from one
// thread at a time (a pool hands them out). An OcrEngineFactory is safe from
// any thread; making an engine is slow (it loads the language models).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/pixel_image.h"
#include "platform/status.h"

namespace klipora {

// Pixel rectangle, origin at the top left; right and bottom are exclusive.
struct OcrBox {
  int left = 0;
  int top = 0;
  int right = 0;
  int bottom = 0;
  bool operator==(const OcrBox&) const = default;
};

struct OcrCharacter {
  std::string text;  // one recognised symbol, UTF-8
  OcrBox box;
};

struct OcrObservation {
  std::string text;  // the line's words joined by single spaces
  float confidence = 0;  // 0..1
  OcrBox box;
  std::vector<OcrBox> words;             // the box of each word, in order
  std::vector<OcrCharacter> characters;  // filled only when asked for
};

enum class OcrLevel {
  accurate,  // full page layout analysis, language model correction on
  fast,      // sparse text: finds scattered words, no correction
  lines,     // each of OcrRequest::lines holds one line of text
};

struct OcrRequest {
  const PixelImage* image = nullptr;  // 1, 3 or 4 channels
  // The part of the image to read (the whole image when empty); boxes are
  // still reported in the coordinates of the whole image.
  OcrBox region;
  OcrLevel level = OcrLevel::accurate;
  // For OcrLevel::lines: the boxes to read, each as one line; what is found
  // comes back box by box, in this order (nothing for a box without text).
  std::vector<OcrBox> lines;
  bool characterBoxes = false;
  // The text is known to be dark on a light background (prepared so): the
  // recogniser need not try doubtful lines inverted.
  bool darkOnLight = false;
  // Polled while recognising; returning true abandons the request.
  std::function<bool()> shouldStop;
};

class OcrEngine {
 public:
  OcrEngine() = default;
  OcrEngine(const OcrEngine&) = delete;
  OcrEngine& operator=(const OcrEngine&) = delete;
  virtual ~OcrEngine() = default;

  // Lines in reading order; an image without text gives no lines. Cancelled
  // when shouldStop answered true, InvalidArgument for an empty image or a
  // region (or line box) outside it, Internal when the recogniser itself
  // failed.
  virtual Result<std::vector<OcrObservation>> recognize(const OcrRequest& request) = 0;
};

// A language the recogniser can read, once its model is installed.
struct OcrLanguage {
  std::string code;     // "chi_sim"
  std::string package;  // the system package that installs it: "tesseract-ocr-chi-sim"
  bool installed = false;
  bool operator==(const OcrLanguage&) const = default;
};

class OcrEngineFactory {
 public:
  OcrEngineFactory() = default;
  OcrEngineFactory(const OcrEngineFactory&) = delete;
  OcrEngineFactory& operator=(const OcrEngineFactory&) = delete;
  virtual ~OcrEngineFactory() = default;

  // Loads an engine for `languages` (recogniser language codes such as "eng",
  // "deu", "chi_sim"; recognised together). NotFound, naming the package to
  // install, when a language's model is missing; Unavailable when loading
  // fails otherwise.
  virtual Result<std::unique_ptr<OcrEngine>> makeEngine(
      const std::vector<std::string>& languages) = 0;

  // Every language known, installed or not, sorted by code. Reads the model
  // folder each time (a package may come or go while the program runs).
  virtual std::vector<OcrLanguage> languages() = 0;
};

}  // namespace klipora
