// klipora classify: runs the built-in category rules on text and facts given
// on the command line, or on a stored item (--item ID), and shows the chosen
// category, the confidence, the candidates with their evidence and the
// explanation. With --model the language model server then arbitrates, as
// processing would; the rules' result stays the primary one. Nothing is
// written to the library.
#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "intelligence/category_resolver.h"
#include "app/model_services.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

using intelligence::ClassificationLabel;
using intelligence::ResolutionInput;
using intelligence::ResolutionResult;

struct ClassifyOptions {
  bool json = false;
  bool model = false;
  std::string item;
  std::string textFile;
  std::optional<std::string> text;
  std::string filename;
  std::optional<std::string> app;
  std::optional<std::string> appName;
  std::vector<std::string> labels;
  std::vector<std::string> entities;
};

// "LABEL=CONFIDENCE" or a bare "LABEL" (no confidence). False on a
// confidence that is not a number.
bool ParseLabel(const std::string& option, ClassificationLabel* label) {
  size_t equals = option.rfind('=');
  if (equals == std::string::npos) {
    label->label = option;
    return !option.empty();
  }
  double confidence = 0;
  if (equals == 0 || !library::parseNumber(option.substr(equals + 1), &confidence) ||
      !std::isfinite(confidence)) {
    return false;
  }
  label->label = option.substr(0, equals);
  label->confidence = static_cast<float>(confidence);
  return true;
}

// Fills `input` from a stored item; prints the reason and returns an exit
// code when it cannot.
int InputFromItem(CliSession& session, const std::string& id, ResolutionInput* input,
                  std::string* imagePath) {
  auto uuid = UUID::Parse(id);
  if (!uuid) {
    std::cerr << "klipora: \"" << id << "\" is not an item id\n";
    return kExitUsage;
  }
  if (!session.openLibrary()) return session.exitCode;
  auto item = session.context().fetchByKey<library::ScreenshotItem>(uuid->uuidString());
  if (!item) {
    std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
    return kExitFailure;
  }
  if (!*item) {
    std::cerr << "klipora: no item with id " << uuid->uuidString() << "\n";
    return kExitFailure;
  }
  const library::ScreenshotItem& record = **item;
  input->ocrText = record.ocrText.value_or("");
  input->filename = record.originalFilename;
  *imagePath = record.libraryPath;
  input->entities = record.generatedEntities();
  input->sourceAppBundleID = record.sourceAppBundleID;
  input->sourceAppName = record.sourceAppName;
  // A label past the end of the stored confidences has none.
  std::vector<float> confidences = record.classificationConfidences();
  std::vector<std::string> labels = record.classificationLabels();
  for (size_t i = 0; i < labels.size(); ++i) {
    ClassificationLabel label{labels[i], std::nullopt};
    if (i < confidences.size()) label.confidence = confidences[i];
    input->classificationLabels.push_back(std::move(label));
  }
  return kExitOk;
}

int InputFromOptions(CliSession& session, const ClassifyOptions& options,
                     ResolutionInput* input) {
  if (!options.textFile.empty()) {
    // "-" reads the text from standard input.
    std::string path = options.textFile == "-" ? "/dev/stdin" : options.textFile;
    auto text = session.platform().fileSystem.readFile(path);
    if (!text) {
      std::cerr << "klipora: cannot read " << options.textFile << ": " << text.error().message()
                << "\n";
      return kExitFailure;
    }
    input->ocrText = std::move(*text);
  } else if (options.text) {
    input->ocrText = *options.text;
  }
  for (const std::string& option : options.labels) {
    ClassificationLabel label;
    if (!ParseLabel(option, &label)) {
      std::cerr << "klipora: --label takes LABEL or LABEL=CONFIDENCE with a number, not \""
                << option << "\"\n";
      return kExitUsage;
    }
    input->classificationLabels.push_back(std::move(label));
  }
  input->filename = options.filename;
  input->entities = options.entities;
  input->sourceAppBundleID = options.app;
  input->sourceAppName = options.appName;
  return kExitOk;
}

nlohmann::ordered_json ResultToJson(const ResolutionResult& result) {
  nlohmann::ordered_json out;
  out["primary"] = result.primaryCategory
                       ? nlohmann::ordered_json(library::rawValue(*result.primaryCategory))
                       : nlohmann::ordered_json(nullptr);
  out["confidence"] = result.confidence;
  out["candidates"] = nlohmann::ordered_json::array();
  for (const auto& candidate : result.candidates) {
    nlohmann::ordered_json evidence = nlohmann::ordered_json::array();
    for (const auto& e : candidate.evidence) {
      evidence.push_back({{"source", intelligence::evidenceSourceName(e.source)},
                          {"signal", e.signal},
                          {"weight", e.weight}});
    }
    out["candidates"].push_back({{"category", library::rawValue(candidate.category)},
                                 {"score", candidate.score},
                                 {"evidence", std::move(evidence)}});
  }
  out["explanation"] = result.explanation;
  return out;
}

void PrintResult(const ResolutionResult& result) {
  char line[64];
  std::cout << "Category: "
            << (result.primaryCategory ? library::rawValue(*result.primaryCategory) : "none")
            << "\n";
  std::snprintf(line, sizeof line, "Confidence: %.3f\n", result.confidence);
  std::cout << line << result.explanation << "\n";
  for (const auto& candidate : result.candidates) {
    std::snprintf(line, sizeof line, "%.3f", candidate.score);
    std::cout << "\n" << library::rawValue(candidate.category) << "  " << line << "\n";
    for (const auto& e : candidate.evidence) {
      std::snprintf(line, sizeof line, "%+.3f", e.weight);
      std::cout << "  " << line << "  " << intelligence::evidenceSourceName(e.source) << "  \""
                << e.signal << "\"\n";
    }
  }
}

struct ModelOutcome {
  std::optional<intelligence::BuiltinArbitration> answer;
  std::optional<std::string> title;
  std::string availability;  // when the model was not asked
};

ModelOutcome Arbitrate(CliSession& session, const ResolutionInput& input,
                       const ResolutionResult& result, const std::string& imagePath) {
  ModelOutcome outcome;
  auto& platform = session.platform();
  if (!platform.makeLanguageModel) {
    outcome.availability = availabilityText(ModelAvailability::unknownReason);
    return outcome;
  }
  UserDefaults defaults(platform.fileSystem, session.paths().defaultsPath);
  (void)defaults.load();
  auto models = app::makeModelServices(platform.makeLanguageModel, defaults, platform.clock,
                                       platform.fileSystem, platform.imageCodec,
                                       platform.background);
  auto& classifier = *models.classifier;
  auto report = classifier.availability();
  if (report.availability != ModelAvailability::available) {
    outcome.availability = availabilityText(report.availability) + ": " + report.detail;
    return outcome;
  }
  outcome.answer = classifier.arbitrate(intelligence::makeArbitrationInput(
      result, input.ocrText, input.filename, input.sourceAppName, input.classificationLabels,
      imagePath));
  if (outcome.answer) outcome.title = classifier.cleanTitle(outcome.answer->title);
  return outcome;
}

nlohmann::ordered_json ModelToJson(const ModelOutcome& outcome) {
  if (!outcome.answer) return nullptr;
  using J = nlohmann::ordered_json;
  const auto& a = *outcome.answer;
  return J{{"category", a.category ? J(library::rawValue(*a.category)) : J(nullptr)},
           {"explanation", a.explanation},
           {"title", outcome.title ? J(*outcome.title) : J(nullptr)}};
}

void PrintModel(const ModelOutcome& outcome) {
  std::cout << "\nModel: ";
  if (!outcome.answer) {
    std::cout << "no usable answer"
              << (outcome.availability.empty() ? std::string(" (see Diagnostics/classify.log)")
                                               : " (" + outcome.availability + ")")
              << "\n";
    return;
  }
  const auto& a = *outcome.answer;
  std::cout << (a.category ? library::rawValue(*a.category) : "uncategorized") << "\n"
            << a.explanation << "\n";
  if (outcome.title) std::cout << "Model title: " << *outcome.title << "\n";
}

int RunClassify(CliSession& session, const ClassifyOptions& options) {
  ResolutionInput input;
  std::string imagePath;
  int status = options.item.empty() ? InputFromOptions(session, options, &input)
                                    : InputFromItem(session, options.item, &input, &imagePath);
  if (status != kExitOk) return status;
  ResolutionResult result = intelligence::CategoryResolver().resolve(input);
  std::optional<ModelOutcome> model;
  if (options.model) model = Arbitrate(session, input, result, imagePath);
  if (options.json) {
    auto out = ResultToJson(result);
    if (model) out["model"] = ModelToJson(*model);
    printJson(out);
  } else {
    PrintResult(result);
    if (model) PrintModel(*model);
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(classify) {
  auto* cmd = app.add_subcommand(
      "classify", "Choose a built-in category for a screenshot's text and facts, and say why");
  auto options = std::make_shared<ClassifyOptions>();
  cmd->add_flag("--json", options->json, "Print the result as JSON");
  cmd->add_flag("--model", options->model,
                "Then ask the language model server to arbitrate (`klipora model use`)");
  auto* item = cmd->add_option("--item", options->item, "Classify the stored item with this id");
  auto* textFile = cmd->add_option("--text-file", options->textFile,
                                   "Read the recognised text from a file (- for standard input)");
  auto* text = cmd->add_option("--text", options->text, "The recognised text");
  auto* filename = cmd->add_option("--filename", options->filename,
                                   "The screenshot's file name at capture");
  auto* appId = cmd->add_option("--app", options->app,
                                "Front application: bundle identifier, desktop-file id or WM_CLASS");
  auto* appName = cmd->add_option("--app-name", options->appName, "Front application's name");
  auto* label = cmd->add_option("--label", options->labels,
                                "Image label, LABEL=CONFIDENCE (0..1) or LABEL; repeatable");
  auto* entity = cmd->add_option("--entity", options->entities,
                                 "Named entity found in the text; repeatable");
  textFile->excludes(text);
  for (auto* other : {textFile, text, filename, appId, appName, label, entity}) item->excludes(other);
  cmd->callback([&session, options] { session.exitCode = RunClassify(session, *options); });
}

}  // namespace klipora::cli
