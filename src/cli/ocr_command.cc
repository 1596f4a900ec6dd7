// klipora ocr: reads the text in image files, line by line, with the same
// recogniser the library uses. klipora ocr-languages sets the languages it
// reads (Tesseract language codes, read together; English by default), or
// lists them with those installed and those Debian packages.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "processing/ocr_service.h"

namespace klipora::cli {
namespace {

using processing::OCRResult;

struct OcrOptions {
  std::vector<std::string> images;
  bool json = false;
  bool fast = false;
  std::string languages;  // "eng+deu" or "eng,deu"; empty: the saved setting
};

std::vector<std::string> SplitCodes(const std::string& list) {
  std::vector<std::string> codes;
  std::string code;
  for (char c : list + ",") {
    if (c == ',' || c == '+' || c == ' ') {
      if (!code.empty()) codes.push_back(code);
      code.clear();
    } else {
      code += c;
    }
  }
  return codes;
}

UserDefaults& Defaults(CliSession& session, std::unique_ptr<UserDefaults>& holder) {
  holder = std::make_unique<UserDefaults>(session.platform().fileSystem,
                                          session.paths().defaultsPath);
  if (Status s = holder->load(); !s.ok()) std::cerr << "klipora: " << s.message() << "\n";
  return *holder;
}

nlohmann::ordered_json ResultJson(const std::string& file, const OCRResult& result) {
  nlohmann::ordered_json lines = nlohmann::ordered_json::array();
  for (const auto& line : result.lines) {
    const auto& b = line.boundingBox;
    lines.push_back({{"text", line.text},
                     {"confidence", line.confidence},
                     {"boundingBox", {{b.x, b.y}, {b.width, b.height}}}});
  }
  return {{"file", file}, {"text", result.text}, {"lines", std::move(lines)}};
}

int RunOcr(CliSession& session, const OcrOptions& options) {
  std::unique_ptr<UserDefaults> defaults;
  processing::OCRServiceConfig config;
  config.languages = options.languages.empty()
                         ? processing::recognitionLanguages(Defaults(session, defaults))
                         : SplitCodes(options.languages);
  config.engineCount = 1;  // one image at a time
  processing::OCRService service(session.platform().ocrEngines, session.platform().imageCodec,
                                 session.platform().clock, config);
  processing::OCROptions ocr;
  ocr.fastOnly = options.fast;

  int exitCode = kExitOk;
  nlohmann::ordered_json results = nlohmann::ordered_json::array();
  const bool several = options.images.size() > 1;
  for (size_t i = 0; i < options.images.size(); ++i) {
    const std::string& file = options.images[i];
    auto bytes = session.platform().fileSystem.readFile(file);
    if (!bytes) {
      std::cerr << "klipora: cannot read " << file << ": " << bytes.error().message() << "\n";
      if (options.json) results.push_back({{"file", file}, {"error", bytes.error().message()}});
      exitCode = kExitFailure;
      continue;
    }
    auto result = service.recognizeTextWithLayout(*bytes, ocr);
    if (!result) {
      const auto& error = result.error();
      std::cerr << "klipora: " << file << ": " << error.errorDescription() << "\n";
      if (!error.detail.empty()) std::cerr << "  (" << error.detail << ")\n";
      if (options.json) results.push_back({{"file", file}, {"error", error.errorDescription()}});
      exitCode = kExitFailure;
      // A missing language or a broken recogniser fails every image alike.
      if (error.kind == processing::OCRError::Case::recognizerUnavailable) break;
      continue;
    }
    if (options.json) {
      results.push_back(ResultJson(file, *result));
      continue;
    }
    if (several) std::cout << (i > 0 ? "\n" : "") << "==> " << file << " <==\n";
    if (!result->text.empty()) std::cout << result->text << "\n";
  }
  if (options.json) printJson(several ? results : results.at(0));
  return exitCode;
}

void PrintLanguages(const std::vector<std::string>& reading,
                    const std::vector<OcrLanguage>& known, bool json) {
  auto installed = [&](const std::string& code) {
    return std::any_of(known.begin(), known.end(),
                       [&](const OcrLanguage& l) { return l.code == code && l.installed; });
  };
  if (json) {
    nlohmann::ordered_json out = {{"reading", reading},
                                  {"installed", nlohmann::ordered_json::array()},
                                  {"installable", nlohmann::ordered_json::array()}};
    for (const OcrLanguage& l : known) {
      if (l.installed) {
        out["installed"].push_back(l.code);
      } else {
        out["installable"].push_back({{"code", l.code}, {"package", l.package}});
      }
    }
    printJson(out);
    return;
  }
  std::string line;
  for (const std::string& code : reading) {
    line += " " + code + (installed(code) ? "" : " (not installed)");
  }
  std::cout << "Reading:  " << line << "\n";
  line.clear();
  for (const OcrLanguage& l : known) {
    if (l.installed) line += " " + l.code;
  }
  std::cout << "Installed:" << line << "\n";
  std::cout << "Installable (language, Debian package):\n";
  for (const OcrLanguage& l : known) {
    if (!l.installed) std::cout << "  " << std::left << std::setw(24) << l.code << l.package << "\n";
  }
  std::cout << "Install one with apt-get (or KLIPORA_OCR_LANGUAGES=\"chi-sim jpn\" make setup), "
               "then choose: klipora ocr-languages eng chi_sim\n";
}

int RunLanguages(CliSession& session, const std::vector<std::string>& codes, bool json) {
  std::unique_ptr<UserDefaults> holder;
  UserDefaults& defaults = Defaults(session, holder);
  if (!codes.empty()) {
    std::vector<std::string> wanted;
    for (const std::string& list : codes) {
      for (const std::string& code : SplitCodes(list)) wanted.push_back(code);
    }
    // Loading an engine is the one sure test that every language is there.
    if (auto engine = session.platform().ocrEngines.makeEngine(wanted); !engine) {
      std::cerr << "klipora: " << engine.error().message() << "\n";
      return kExitFailure;
    }
    if (Status s = defaults.setStringList(processing::kRecognitionLanguagesKey, wanted);
        !s.ok()) {
      std::cerr << "klipora: cannot save the languages: " << s.message() << "\n";
      return kExitFailure;
    }
  }
  std::vector<std::string> languages = processing::recognitionLanguages(defaults);
  std::vector<OcrLanguage> known = session.platform().ocrEngines.languages();
  if (!codes.empty() && !json) {
    std::ostringstream line;
    for (size_t i = 0; i < languages.size(); ++i) line << (i ? " " : "") << languages[i];
    std::cout << "Reading: " << line.str() << "\n";
    return kExitOk;
  }
  PrintLanguages(languages, known, json);
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(ocr) {
  auto options = std::make_shared<OcrOptions>();
  auto* cmd = app.add_subcommand("ocr", "Read the text in images, line by line");
  cmd->add_option("IMAGE", options->images, "Image files")->required();
  cmd->add_flag("--json", options->json,
                "Print {\"file\", \"text\", \"lines\"} per image (an array for several)");
  cmd->add_flag("--fast", options->fast, "Sparse-text reading only, no page layout");
  cmd->add_option("--languages", options->languages,
                  "Tesseract language codes for this run, such as eng+deu (default: the "
                  "ocr-languages setting)");
  cmd->callback([&session, options] { session.exitCode = RunOcr(session, *options); });

  auto codes = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto* languages =
      app.add_subcommand("ocr-languages",
                         "List the languages text recognition reads, is able to read and could "
                         "read once installed; or choose those it reads");
  languages->add_option("CODE", *codes,
                        "Tesseract language codes to read from now on, together (eng chi_sim, …)");
  languages->add_flag("--json", *json, "Print as JSON");
  languages->callback(
      [&session, codes, json] { session.exitCode = RunLanguages(session, *codes, *json); });
}

}  // namespace klipora::cli
