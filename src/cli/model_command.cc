// klipora model use URL [--model NAME] | off | status: the local language
// model server (any server with the OpenAI-compatible API) that checks the
// rules' categories, matches the user's own categories and writes titles.
// The setting lives in the user defaults; a running daemon takes it at once.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "platform/http_url.h"
#include "platform/language_model.h"

namespace klipora::cli {
namespace {

// Asks the server, as the daemon would, and prints what it said.
int PrintStatus(CliSession& session, bool json) {
  UserDefaults defaults(session.platform().fileSystem, session.paths().defaultsPath);
  if (Status s = defaults.load(); !s.ok()) std::cerr << "klipora: " << s.message() << "\n";
  const ModelEndpoint endpoint = readModelEndpoint(defaults);
  ModelAvailabilityReport report;
  if (session.platform().makeLanguageModel) {
    auto model = session.platform().makeLanguageModel([endpoint] { return endpoint; });
    report = model->availability();
  } else {
    report.detail = "this build has no model client";
  }
  const bool available = report.availability == ModelAvailability::available;
  const std::string modelName = available ? report.modelName : endpoint.modelName;
  if (json) {
    printJson({{"endpoint", endpoint.baseURL.empty() ? nlohmann::ordered_json()
                                                     : nlohmann::ordered_json(endpoint.baseURL)},
               {"availability", availabilityText(report.availability)},
               {"model", modelName.empty() ? nlohmann::ordered_json()
                                           : nlohmann::ordered_json(modelName)},
               {"detail", report.detail}});
    return kExitOk;
  }
  std::cout << "Endpoint: " << (endpoint.baseURL.empty() ? "none" : endpoint.baseURL) << "\n"
            << "Availability: " << availabilityText(report.availability) << "\n"
            << "Model: " << (modelName.empty() ? "none" : modelName) << "\n";
  if (!available) {
    std::cout << "Why: " << report.detail << "\n"
              << "Classification uses the rules alone until a model is available.\n";
  }
  return kExitOk;
}

int RunSet(CliSession& session, const std::optional<std::string>& url,
           const std::string& modelName, bool json) {
  auto request = app::makeRequest("model");
  if (url) {
    if (auto parsed = parseHttpUrl(*url); !parsed) {
      std::cerr << "klipora: " << parsed.error().message() << "\n";
      return kExitUsage;
    }
    request["endpoint"] = *url;
    if (!modelName.empty()) request["model"] = modelName;
  } else {
    request["endpoint"] = nullptr;
  }
  auto result = runLibraryRequest(session, request, 30);
  if (!result) return session.exitCode;
  if (!result->reply.value("ok", false)) {
    std::cerr << "klipora: " << replyError(result->reply) << "\n";
    return kExitFailure;
  }
  if (!url) {
    if (json) return PrintStatus(session, true);
    std::cout << "No model server: classification uses the rules alone.\n";
    return kExitOk;
  }
  if (!json) std::cout << "Model server set to " << *url << ".\n";
  return PrintStatus(session, json);
}

}  // namespace

KLIPORA_COMMAND(model) {
  auto* cmd = app.add_subcommand(
      "model", "Use a local language model server (OpenAI-compatible API) for classification");
  cmd->require_subcommand(1);
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print the result as JSON");

  auto* use = cmd->add_subcommand(
      "use", "Set the server: the base URL of its API, such as http://127.0.0.1:8080/v1");
  auto url = std::make_shared<std::string>();
  auto name = std::make_shared<std::string>();
  use->add_option("url", *url, "Base URL of the OpenAI-compatible API")->required();
  use->add_option("--model", *name, "Model to ask (default: the first one the server lists)");
  use->add_flag("--json", *json, "Print the result as JSON");
  use->callback([&session, url, name, json] {
    session.exitCode = RunSet(session, *url, *name, *json);
  });

  auto* off = cmd->add_subcommand("off", "Forget the server: classify by the rules alone");
  off->add_flag("--json", *json, "Print the result as JSON");
  off->callback([&session, json] {
    session.exitCode = RunSet(session, std::nullopt, "", *json);
  });

  auto* status = cmd->add_subcommand("status", "Show the server, its availability and model");
  status->add_flag("--json", *json, "Print the status as JSON");
  status->callback([&session, json] { session.exitCode = PrintStatus(session, *json); });
}

}  // namespace klipora::cli
