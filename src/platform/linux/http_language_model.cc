#include "platform/linux/http_language_model.h"

#include <openssl/evp.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/linux/http_client.h"

namespace klipora {
namespace {

using Json = nlohmann::json;

std::string base64(const std::string& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3), '\0');
  int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                reinterpret_cast<const unsigned char*>(bytes.data()),
                                static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(std::max(written, 0)));
  return out;
}

// The server's own words for a failed request, when it gave any.
std::string serverMessage(const HttpResponse& response) {
  Json body = Json::parse(response.body, nullptr, false);
  if (body.is_object() && body.contains("error")) {
    const Json& error = body["error"];
    if (error.is_string()) return error.get<std::string>();
    if (error.is_object() && error.value("message", Json()).is_string()) {
      return error["message"].get<std::string>();
    }
  }
  std::string text = response.body.substr(0, 200);
  return text.empty() ? "no details" : text;
}

Status httpFailure(const std::string& what, const HttpResponse& response) {
  return Status::Unavailable("the model server answered " + what + " with HTTP " +
                             std::to_string(response.status) + ": " + serverMessage(response));
}

}  // namespace

std::string chatCompletionBody(const ModelRequest& request, const std::string& modelName) {
  Json user;
  if (request.image) {
    user = Json::array(
        {Json{{"type", "text"}, {"text", request.prompt}},
         Json{{"type", "image_url"},
              {"image_url",
               {{"url", "data:" + request.image->mimeType + ";base64," +
                            base64(request.image->bytes)}}}}});
  } else {
    user = request.prompt;
  }
  Json schema = Json::parse(request.schemaJSON, nullptr, false);
  if (schema.is_discarded()) schema = Json::object();
  Json body = {
      {"messages",
       Json::array({Json{{"role", "system"}, {"content", request.instructions}},
                    Json{{"role", "user"}, {"content", std::move(user)}}})},
      {"response_format",
       {{"type", "json_schema"},
        {"json_schema",
         {{"name", request.schemaName}, {"strict", true}, {"schema", std::move(schema)}}}}},
      {"temperature", request.temperature},
      {"max_tokens", request.maxTokens},
      {"stream", false},
  };
  if (!modelName.empty()) body["model"] = modelName;
  return body.dump();
}

ModelAvailabilityReport HttpLanguageModel::availability() {
  ModelEndpoint endpoint = endpoint_();
  ModelAvailabilityReport report;
  if (endpoint.baseURL.empty()) {
    report.detail = "no model server is set; `klipora model use URL` sets one";
    return report;
  }
  auto url = parseHttpUrl(endpoint.baseURL);
  if (!url) {
    report.availability = ModelAvailability::unknownReason;
    report.detail = url.error().message();
    return report;
  }
  auto response = httpExchange(*url, {.method = "GET",
                                       .path = "/models",
                                       .body = {},
                                       .timeoutSeconds = kAvailabilityTimeout,
                                       .cancel = nullptr});
  if (!response) {
    report.availability = ModelAvailability::serverUnreachable;
    report.detail = response.error().message();
    return report;
  }
  if (response->status == 503) {
    report.availability = ModelAvailability::modelNotReady;
    report.detail = "the server is not ready: " + serverMessage(*response);
    return report;
  }
  Json body = Json::parse(response->body, nullptr, false);
  if (response->status != 200 || !body.is_object() || !body.value("data", Json()).is_array()) {
    report.availability = ModelAvailability::unknownReason;
    report.detail = response->status != 200
                        ? httpFailure("the list of models", *response).message()
                        : "the server's list of models is not the expected JSON";
    return report;
  }
  std::vector<std::string> ids;
  for (const Json& model : body["data"]) {
    if (model.is_object() && model.value("id", Json()).is_string()) {
      ids.push_back(model["id"].get<std::string>());
    }
  }
  if (ids.empty()) {
    report.availability = ModelAvailability::modelNotReady;
    report.detail = "the server lists no model";
    return report;
  }
  if (!endpoint.modelName.empty() &&
      std::find(ids.begin(), ids.end(), endpoint.modelName) == ids.end()) {
    report.availability = ModelAvailability::modelNotReady;
    report.detail = "the server has no model named \"" + endpoint.modelName + "\"";
    return report;
  }
  report.availability = ModelAvailability::available;
  report.modelName = endpoint.modelName.empty() ? ids.front() : endpoint.modelName;
  return report;
}

Result<std::string> HttpLanguageModel::respond(const ModelRequest& request, CancelSignal& cancel) {
  ModelEndpoint endpoint = endpoint_();
  if (endpoint.baseURL.empty()) return Err(Status::Unavailable("no model server is set"));
  ASSIGN_OR_RETURN(HttpUrl url, parseHttpUrl(endpoint.baseURL));
  ASSIGN_OR_RETURN(HttpResponse response,
                   httpExchange(url, {.method = "POST",
                                      .path = "/chat/completions",
                                      .body = chatCompletionBody(request, endpoint.modelName),
                                      .timeoutSeconds = 0,
                                      .cancel = &cancel}));
  if (response.status / 100 != 2) {
    return Err(Status::FailedPrecondition(httpFailure("the request", response).message()));
  }
  Json body = Json::parse(response.body, nullptr, false);
  if (body.is_discarded()) return Err(Status::Corruption("the model server's reply is not JSON"));
  const Json* content = nullptr;
  if (body.is_object() && body.value("choices", Json()).is_array() && !body["choices"].empty()) {
    const Json& choice = body["choices"][0];
    if (choice.is_object() && choice.value("message", Json()).is_object()) {
      const Json& message = choice["message"];
      if (message.value("content", Json()).is_string()) content = &message["content"];
    }
  }
  if (!content) {
    return Err(Status::Corruption("the model server's reply has no choices[0].message.content"));
  }
  return content->get<std::string>();
}

Result<std::vector<std::vector<float>>> HttpLanguageModel::embed(
    const std::vector<std::string>& texts) {
  ModelEndpoint endpoint = endpoint_();
  if (endpoint.baseURL.empty()) return Err(Status::Unavailable("no model server is set"));
  ASSIGN_OR_RETURN(HttpUrl url, parseHttpUrl(endpoint.baseURL));
  Json request = {{"input", texts}};
  if (!endpoint.modelName.empty()) request["model"] = endpoint.modelName;
  ASSIGN_OR_RETURN(HttpResponse response, httpExchange(url, {.method = "POST",
                                                             .path = "/embeddings",
                                                             .body = request.dump(),
                                                             .timeoutSeconds = kEmbeddingTimeout,
                                                             .cancel = nullptr}));
  if (response.status / 100 != 2) return Err(httpFailure("the embeddings request", response));
  Json body = Json::parse(response.body, nullptr, false);
  if (!body.is_object() || !body.value("data", Json()).is_array() ||
      body["data"].size() != texts.size()) {
    return Err(Status::Corruption("the model server's embeddings reply is not the expected JSON"));
  }
  std::vector<std::vector<float>> out(texts.size());
  size_t position = 0;
  for (const Json& entry : body["data"]) {
    size_t index = position++;
    if (entry.is_object() && entry.value("index", Json()).is_number_unsigned()) {
      index = entry["index"].get<size_t>();
    }
    if (index >= out.size() || !entry.is_object() ||
        !entry.value("embedding", Json()).is_array()) {
      return Err(Status::Corruption("the model server's embeddings reply is not the expected JSON"));
    }
    for (const Json& value : entry["embedding"]) {
      if (!value.is_number()) return Err(Status::Corruption("an embedding holds a non-number"));
      out[index].push_back(value.get<float>());
    }
  }
  return out;
}

}  // namespace klipora
