// The Tesseract language models Debian packages: the model's code and the
// package that installs it under the tessdata folder.
#pragma once

#include <span>

namespace klipora {

struct TesseractPackage {
  const char* code;     // "chi_sim", "script/HanS"
  const char* package;  // "tesseract-ocr-chi-sim", "tesseract-ocr-script-hans"
};

// Sorted by package name.
std::span<const TesseractPackage> debianTesseractPackages();

}  // namespace klipora
