#include "intelligence/foundation_model_classifier.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <nlohmann/json.hpp>
#include <thread>

#include "intelligence/foundation_model_answers.h"
#include "intelligence/foundation_model_prompts.h"
#include "intelligence/generated_title.h"
#include "intelligence/text_words.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

using Json = nlohmann::json;

// How often the time-out watcher looks at the clock. The clock may be one a
// test moves by hand, so the wait cannot rest on a timed wait alone.
constexpr double kClockCheckSeconds = 0.2;
// Larger files are not read for attachment.
constexpr int64_t kMaxAttachmentSourceBytes = 64 << 20;

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::string Trim(std::string_view text) { return std::string(trimBlanks(text)); }

std::string Quoted(const std::string& text) {
  return "\"" + (text.size() > 120 ? text.substr(0, 120) + "…" : text) + "\"";
}

}  // namespace

struct FoundationModelClassifier::Answer {
  std::optional<Json> json;  // the answer's object
  bool timedOut = false;
  std::string error;  // when neither
  long long ms = 0;
  bool imageSent = false;
};

FoundationModelClassifier::FoundationModelClassifier(LanguageModel& model, Clock& clock,
                                                     FileSystem& fileSystem,
                                                     ImageCodec& imageCodec, Executor& background,
                                                     FoundationModelClassifierConfig config)
    : model_(model),
      clock_(clock),
      fileSystem_(fileSystem),
      imageCodec_(imageCodec),
      background_(background),
      config_(config) {}

ModelAvailabilityReport FoundationModelClassifier::availability() {
  const double now = clock_.monotonicSeconds();
  // A new endpoint (`klipora model use`) is asked at once.
  const ModelEndpoint endpoint = model_.endpoint();
  const std::string key = endpoint.baseURL + "\n" + endpoint.modelName;
  {
    std::lock_guard lock(mutex_);
    if (availability_ && availabilityKey_ == key &&
        now - availabilityCheckedAt_ < config_.availabilityCacheSeconds) {
      return *availability_;
    }
  }
  ModelAvailabilityReport report = model_.availability();
  std::lock_guard lock(mutex_);
  availability_ = report;
  availabilityKey_ = key;
  availabilityCheckedAt_ = now;
  return report;
}

void FoundationModelClassifier::cancelRequests() {
  std::lock_guard lock(mutex_);
  cancelled_ = true;
  for (CancelSignal* request : inFlight_) request->cancel();
}

bool FoundationModelClassifier::isAvailable() {
  return availability().availability == ModelAvailability::available;
}

std::optional<ModelImage> FoundationModelClassifier::attachment(const std::string& path) {
  {
    std::lock_guard lock(mutex_);
    if (imagesRefused_) return std::nullopt;
  }
  if (path.empty()) return std::nullopt;
  auto attributes = fileSystem_.attributes(path);
  if (!attributes || !attributes->isRegularFile || attributes->size > kMaxAttachmentSourceBytes) {
    return std::nullopt;
  }
  auto bytes = fileSystem_.readFile(path);
  if (!bytes) return std::nullopt;
  auto jpeg = imageCodec_.makeJpegThumbnail(*bytes, config_.attachmentPixelSize, 80);
  if (!jpeg) return std::nullopt;
  return ModelImage{std::move(*jpeg), "image/jpeg"};
}

// Runs the request on this thread while a watcher races it against the
// clock; past the limit the watcher cancels the request, which then returns
// at once, and whatever it brought is dropped.
FoundationModelClassifier::Answer FoundationModelClassifier::ask(ModelRequest request,
                                                                 double timeoutSeconds) {
  Answer answer;
  CancelSignal cancel;
  {
    std::lock_guard lock(mutex_);
    if (cancelled_) {
      answer.error = "not sent: the service is stopping";
      return answer;
    }
    inFlight_.insert(&cancel);
  }
  std::mutex mutex;
  std::condition_variable finishedChanged;
  bool finished = false;
  bool timedOut = false;
  const double start = clock_.monotonicSeconds();
  const double deadline = start + timeoutSeconds;
  std::thread watcher([&] {
    std::unique_lock lock(mutex);
    while (!finished) {
      const double remaining = deadline - clock_.monotonicSeconds();
      if (remaining <= 0) {
        timedOut = true;
        lock.unlock();
        cancel.cancel();
        return;
      }
      finishedChanged.wait_for(
          lock, std::chrono::duration<double>(std::min(remaining, kClockCheckSeconds)));
    }
  });
  answer.imageSent = request.image.has_value();
  Result<std::string> reply = model_.respond(request, cancel);
  if (!reply && request.image && reply.error().code() == Status::Code::kFailedPrecondition &&
      !cancel.isCancelled()) {
    // A server without image input refuses the whole request: ask again
    // without the picture, and never send one again.
    log::classify("fm-image REFUSED err=" + Quoted(reply.error().message()) +
                  " — asking without the image from now on");
    {
      std::lock_guard lock(mutex_);
      imagesRefused_ = true;
    }
    request.image.reset();
    answer.imageSent = false;
    reply = model_.respond(request, cancel);
  }
  {
    std::lock_guard lock(mutex);
    finished = true;
  }
  finishedChanged.notify_all();
  watcher.join();
  {
    std::lock_guard lock(mutex_);
    inFlight_.erase(&cancel);
  }
  answer.ms = std::llround((clock_.monotonicSeconds() - start) * 1000);
  if (timedOut) {
    answer.timedOut = true;
    return answer;
  }
  if (!reply) {
    answer.error = reply.error().message();
    return answer;
  }
  auto json = answerObject(*reply);
  if (!json) {
    answer.error = "the answer is not a JSON object: " + Quoted(*reply);
    return answer;
  }
  answer.json = std::move(*json);
  return answer;
}

std::optional<BuiltinArbitration> FoundationModelClassifier::arbitrate(
    const ArbitrationInput& input) {
  auto report = availability();
  if (report.availability != ModelAvailability::available) {
    log::classify("fm-arbitrate SKIP availability=" + availabilityText(report.availability));
    return std::nullopt;
  }
  auto image = attachment(input.imageURL);
  Answer answer = ask({.instructions = "",
                       .prompt = arbitrationPrompt(input, image.has_value()),
                       .schemaName = kCategoryClassification,
                       .schemaJSON = categoryClassificationSchema(),
                       .image = std::move(image),
                       .temperature = 0,
                       .maxTokens = 300},
                      config_.timeoutSeconds);
  if (answer.timedOut) {
    log::classify("fm-arbitrate TIMEOUT after " + std::to_string(answer.ms) +
                  "ms) — model too slow this run");
    return std::nullopt;
  }
  auto category = answer.json ? stringField(*answer.json, "category") : std::nullopt;
  auto explanation = answer.json ? stringField(*answer.json, "explanation") : std::nullopt;
  auto title = answer.json ? stringField(*answer.json, "title") : std::nullopt;
  if (answer.json && (!category || !explanation || !title)) {
    answer.error = "the answer lacks category, explanation or title";
  }
  if (!answer.error.empty()) {
    log::classify("fm-arbitrate ERROR ms=" + std::to_string(answer.ms) + " err=" +
                  Quoted(answer.error));
    return std::nullopt;
  }
  bool known = false;
  auto mapped = mapModelCategory(*category, &known);
  if (!known) {
    log::classify("fm-arbitrate UNMAPPED category=" + Quoted(*category) +
                  " (model returned a value outside the known category list)");
    return std::nullopt;
  }
  log::classify("fm-arbitrate OK pick=" + Trim(Lower(*category)) + " ms=" +
                std::to_string(answer.ms) + " image=" + log::yesNo(answer.imageSent) +
                " title=" + Quoted(*title));
  return BuiltinArbitration{mapped, *explanation, *title};
}

std::optional<CombinedArbitration> FoundationModelClassifier::arbitrateAndMatchCustom(
    const ArbitrationInput& input, const std::vector<CustomCategoryDescriptor>& categories) {
  auto report = availability();
  if (report.availability != ModelAvailability::available) {
    log::classify("fm-combined SKIP availability=" + availabilityText(report.availability));
    return std::nullopt;
  }
  log::classify("fm-combined START file=" + input.filename +
                " customCount=" + std::to_string(categories.size()));
  auto image = attachment(input.imageURL);
  Answer answer = ask({.instructions = "",
                       .prompt = combinedPrompt(input, categories, image.has_value()),
                       .schemaName = kCombinedClassification,
                       .schemaJSON = combinedClassificationSchema(),
                       .image = std::move(image),
                       .temperature = 0,
                       .maxTokens = 400},
                      config_.timeoutSeconds);
  if (answer.timedOut) {
    log::classify("fm-combined TIMEOUT after " + std::to_string(answer.ms) +
                  "ms) — model too slow this run");
    return std::nullopt;
  }
  std::optional<std::string> category, explanation, title, name, customExplanation;
  std::optional<long long> number;
  if (answer.json) {
    category = stringField(*answer.json, "category");
    explanation = stringField(*answer.json, "explanation");
    title = stringField(*answer.json, "title");
    name = stringField(*answer.json, "customCategoryName");
    customExplanation = stringField(*answer.json, "customExplanation");
    number = integerField(*answer.json, "customCategoryNumber");
    if (!category || !explanation || !title || !name || !number) {
      answer.error =
          "the answer lacks category, explanation, title, customCategoryNumber or "
          "customCategoryName";
    }
  }
  if (!answer.error.empty()) {
    log::classify("fm-combined ERROR ms=" + std::to_string(answer.ms) + " err=" +
                  Quoted(answer.error));
    return std::nullopt;
  }
  CombinedArbitration out;
  bool known = false;
  auto mapped = mapModelCategory(*category, &known);
  if (known) {
    out.builtin = {mapped, *explanation, *title};
  } else {
    log::classify("fm-combined UNMAPPED category=" + Quoted(*category) +
                  " (model returned a value outside the known category list)");
  }
  bool mismatch = false;
  auto index = matchCustomAnswer(*number, *name, categories, &mismatch);
  if (mismatch) {
    log::classify("fm-combined NAME/NUM MISMATCH name=" + Quoted(*name) +
                  " num=" + std::to_string(*number) + " — trusting name");
  }
  if (index) out.custom = CustomArbitration{categories[*index].id, customExplanation.value_or("")};
  log::classify("fm-combined OK pick=" + (known ? Trim(Lower(*category)) : std::string("-")) +
                " custom=" + (index ? Quoted(categories[*index].name) : std::string("none")) +
                " ms=" + std::to_string(answer.ms) + " image=" + log::yesNo(answer.imageSent) +
                " title=" + Quoted(known ? *title : std::string()));
  return out;
}

std::optional<std::string> FoundationModelClassifier::cleanTitle(const std::string& text) {
  std::string title = cleanModelTitle(text);
  constexpr std::string_view kLead = "a screenshot of ";
  if (Lower(title.substr(0, kLead.size())) == kLead) {
    title = cleanModelTitle(title.substr(kLead.size()));
  }
  if (title.empty()) return std::nullopt;
  return title;
}

void FoundationModelClassifier::warmUp(bool includeCustomCategorySchema) {
  background_.post([this, includeCustomCategorySchema] {
    const char* schema =
        includeCustomCategorySchema ? kCombinedClassification : kCategoryClassification;
    auto report = availability();
    if (report.availability != ModelAvailability::available) {
      log::classify(std::string("fm-warmup DONE schema=") + schema +
                    " availability=" + availabilityText(report.availability));
      return;
    }
    // One token is enough for the server to load the model and keep the
    // instructions' prefix ready.
    Answer answer = ask({.instructions = "",
                         .prompt = arbitrationPrompt({}, false),
                         .schemaName = schema,
                         .schemaJSON = includeCustomCategorySchema
                                           ? combinedClassificationSchema()
                                           : categoryClassificationSchema(),
                         .image = std::nullopt,
                         .temperature = 0,
                         .maxTokens = 1},
                        config_.timeoutSeconds);
    if (answer.timedOut || (!answer.json && !answer.error.empty() &&
                            answer.error.rfind("the answer is not", 0) != 0)) {
      log::classify(std::string("fm-warmup DONE schema=") + schema + " ms=" +
                    std::to_string(answer.ms) + " err=" +
                    Quoted(answer.timedOut ? "timed out" : answer.error));
      return;
    }
    log::classify(std::string("fm-warmup OK schema=") + schema + " ms=" +
                  std::to_string(answer.ms));
  });
}

std::vector<std::string> FoundationModelClassifier::expandKeywords(
    const std::string& categoryName, const std::string& description,
    const std::vector<std::string>& base) {
  auto report = availability();
  if (report.availability != ModelAvailability::available) {
    log::classify("fm-expand SKIP availability=" + availabilityText(report.availability));
    return {};
  }
  log::classify("fm-expand START cat=" + Quoted(categoryName));
  Answer answer = ask({.instructions = "",
                       .prompt = keywordExpansionPrompt(categoryName, description, base),
                       .schemaName = kKeywordExpansion,
                       .schemaJSON = keywordExpansionSchema(),
                       .image = std::nullopt,
                       .temperature = 0.3,
                       .maxTokens = 200},
                      config_.expandTimeoutSeconds);
  if (answer.timedOut) {
    log::classify("fm-expand TIMEOUT cat=" + Quoted(categoryName) +
                  " ms=" + std::to_string(answer.ms));
    return {};
  }
  auto keywords = answer.json ? stringField(*answer.json, "keywords") : std::nullopt;
  if (answer.json && !keywords) answer.error = "the answer lacks keywords";
  if (!answer.error.empty()) {
    log::classify("fm-expand ERROR cat=" + Quoted(categoryName) + " ms=" +
                  std::to_string(answer.ms) + " err=" + Quoted(answer.error));
    return {};
  }
  std::vector<std::string> out = keywordTerms(*keywords, base);
  log::classify("fm-expand OK cat=" + Quoted(categoryName) + " count=" +
                std::to_string(out.size()) + " ms=" + std::to_string(answer.ms));
  return out;
}

}  // namespace klipora::intelligence
