// FakeModelServer: an OpenAI-compatible model server on 127.0.0.1 (a port of
// its own) that answers what the test scripts: a list of models, a chat
// answer, an error, a malformed reply, or nothing at all until the client
// gives up. It records every request and notices clients that hang up on a
// request it never answered.
//
// Thread rules: the script runs on the server's connection threads; the
// other calls are safe from any thread.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

namespace klipora::testing {

struct FakeModelRequest {
  std::string method;
  std::string path;  // "/v1/chat/completions"
  std::string rawBody;
  nlohmann::json body;  // null when the body is not JSON
};

struct FakeModelReply {
  int status = 200;
  std::string body;
  // Sent as they stand instead of a reply built from status and body.
  std::string raw;
  // Never answers; the connection stays open until the client closes it.
  bool hang = false;

  static FakeModelReply json(int status, std::string body) {
    FakeModelReply r;
    r.status = status;
    r.body = std::move(body);
    return r;
  }
  static FakeModelReply bytes(std::string raw) {
    FakeModelReply r;
    r.raw = std::move(raw);
    return r;
  }
  static FakeModelReply never() {
    FakeModelReply r;
    r.hang = true;
    return r;
  }
};

class FakeModelServer {
 public:
  using Script = std::function<FakeModelReply(const FakeModelRequest&)>;

  // The default script lists the model "fake-model" and answers every chat
  // request with `chatContent`, and embeddings with a vector of word counts.
  FakeModelServer();
  explicit FakeModelServer(Script script);
  ~FakeModelServer();
  FakeModelServer(const FakeModelServer&) = delete;
  FakeModelServer& operator=(const FakeModelServer&) = delete;

  // "http://127.0.0.1:<port>/v1".
  std::string baseURL() const;
  void setScript(Script script);
  // Sets what the default script answers to chat requests.
  void setChatContent(const nlohmann::json& content);

  std::vector<FakeModelRequest> requests() const;
  std::vector<FakeModelRequest> chatRequests() const;
  // Hung requests whose client closed the connection.
  size_t abandonedRequests() const;
  // Waits (at most `seconds`) until `count` hung requests were abandoned.
  bool waitForAbandoned(size_t count, double seconds) const;

  // A chat-completions reply whose message content is `content` (dumped
  // when it is not a string).
  static FakeModelReply chatReply(const nlohmann::json& content);
  static FakeModelReply modelsReply(const std::vector<std::string>& ids);

 private:
  void acceptLoop();
  void serve(int fd);
  FakeModelReply defaultScript(const FakeModelRequest& request);

  int listener_ = -1;
  int stop_ = -1;  // eventfd that ends every wait
  int port_ = 0;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  Script script_;
  nlohmann::json chatContent_;
  std::vector<FakeModelRequest> requests_;
  size_t abandoned_ = 0;
  std::vector<std::thread> connections_;
  std::thread acceptor_;
};

}  // namespace klipora::testing
