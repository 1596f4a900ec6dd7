#include "platform/testing/fake_model_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <sstream>

namespace klipora::testing {
namespace {

using Json = nlohmann::json;

// Waits until `fd` is readable or the server stops; false on stop.
bool waitReadable(int fd, int stop) {
  pollfd fds[2] = {{fd, POLLIN, 0}, {stop, POLLIN, 0}};
  for (;;) {
    int n = ::poll(fds, 2, -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 || fds[1].revents) return false;
    return true;
  }
}

void sendAll(int fd, const std::string& data) {
  for (size_t sent = 0; sent < data.size();) {
    ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;
    sent += static_cast<size_t>(n);
  }
}

}  // namespace

FakeModelServer::FakeModelServer() : FakeModelServer(nullptr) {}

FakeModelServer::FakeModelServer(Script script)
    : script_(std::move(script)), chatContent_(Json::object()) {
  stop_ = ::eventfd(0, EFD_CLOEXEC);
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  (void)::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
  (void)::listen(listener_, 16);
  socklen_t length = sizeof address;
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptLoop(); });
}

FakeModelServer::~FakeModelServer() {
  uint64_t one = 1;
  (void)!::write(stop_, &one, sizeof one);
  acceptor_.join();
  std::vector<std::thread> connections;
  {
    std::lock_guard lock(mutex_);
    connections.swap(connections_);
  }
  for (auto& t : connections) t.join();
  ::close(listener_);
  ::close(stop_);
}

std::string FakeModelServer::baseURL() const {
  return "http://127.0.0.1:" + std::to_string(port_) + "/v1";
}

void FakeModelServer::setScript(Script script) {
  std::lock_guard lock(mutex_);
  script_ = std::move(script);
}

void FakeModelServer::setChatContent(const Json& content) {
  std::lock_guard lock(mutex_);
  chatContent_ = content;
}

std::vector<FakeModelRequest> FakeModelServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<FakeModelRequest> FakeModelServer::chatRequests() const {
  std::vector<FakeModelRequest> out;
  for (auto& r : requests()) {
    if (r.path.ends_with("/chat/completions")) out.push_back(r);
  }
  return out;
}

size_t FakeModelServer::abandonedRequests() const {
  std::lock_guard lock(mutex_);
  return abandoned_;
}

bool FakeModelServer::waitForAbandoned(size_t count, double seconds) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, std::chrono::duration<double>(seconds),
                           [&] { return abandoned_ >= count; });
}

FakeModelReply FakeModelServer::chatReply(const Json& content) {
  Json body = {{"id", "chatcmpl-fake"},
               {"object", "chat.completion"},
               {"choices",
                Json::array({{{"index", 0},
                              {"message",
                               {{"role", "assistant"},
                                {"content", content.is_string() ? content.get<std::string>()
                                                                : content.dump()}}},
                              {"finish_reason", "stop"}}})}};
  return FakeModelReply::json(200, body.dump());
}

FakeModelReply FakeModelServer::modelsReply(const std::vector<std::string>& ids) {
  Json data = Json::array();
  for (const auto& id : ids) data.push_back({{"id", id}, {"object", "model"}});
  return FakeModelReply::json(200, Json{{"object", "list"}, {"data", data}}.dump());
}

FakeModelReply FakeModelServer::defaultScript(const FakeModelRequest& request) {
  if (request.path.ends_with("/models")) return modelsReply({"fake-model"});
  if (request.path.ends_with("/chat/completions")) {
    std::lock_guard lock(mutex_);
    return chatReply(chatContent_);
  }
  if (request.path.ends_with("/embeddings") && request.body.is_object()) {
    // A tiny deterministic embedding: letters a..h counted.
    Json data = Json::array();
    size_t index = 0;
    for (const Json& text : request.body.value("input", Json::array())) {
      std::vector<float> v(8, 0.0f);
      for (char c : text.is_string() ? text.get<std::string>() : std::string()) {
        if (c >= 'a' && c <= 'h') v[static_cast<size_t>(c - 'a')] += 1;
      }
      data.push_back({{"object", "embedding"}, {"index", index++}, {"embedding", v}});
    }
    return FakeModelReply::json(200, Json{{"data", data}}.dump());
  }
  return FakeModelReply::json(404, R"({"error":{"message":"no such route"}})");
}

void FakeModelServer::acceptLoop() {
  while (waitReadable(listener_, stop_)) {
    int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::lock_guard lock(mutex_);
    connections_.emplace_back([this, fd] {
      serve(fd);
      ::close(fd);
    });
  }
}

void FakeModelServer::serve(int fd) {
  std::string data;
  char buffer[16384];
  size_t headEnd = std::string::npos;
  size_t contentLength = 0;
  while (headEnd == std::string::npos || data.size() < headEnd + 4 + contentLength) {
    if (!waitReadable(fd, stop_)) return;
    ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
    if (n <= 0) return;
    data.append(buffer, static_cast<size_t>(n));
    if (headEnd == std::string::npos && (headEnd = data.find("\r\n\r\n")) != std::string::npos) {
      std::istringstream head(data.substr(0, headEnd));
      std::string line;
      while (std::getline(head, line)) {
        for (auto& c : line) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (line.rfind("content-length:", 0) == 0) contentLength = std::stoul(line.substr(15));
      }
    }
  }
  FakeModelRequest request;
  std::istringstream first(data.substr(0, data.find("\r\n")));
  first >> request.method >> request.path;
  request.rawBody = data.substr(headEnd + 4, contentLength);
  request.body = Json::parse(request.rawBody, nullptr, false);
  if (request.body.is_discarded()) request.body = nullptr;
  Script script;
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
    script = script_;
  }
  FakeModelReply reply = script ? script(request) : defaultScript(request);
  if (reply.hang) {
    // Held until the client hangs up (EOF) or the server stops.
    if (!waitReadable(fd, stop_)) return;
    while (::recv(fd, buffer, sizeof buffer, 0) > 0) {
      if (!waitReadable(fd, stop_)) return;
    }
    std::lock_guard lock(mutex_);
    ++abandoned_;
    changed_.notify_all();
    return;
  }
  if (!reply.raw.empty()) {
    sendAll(fd, reply.raw);
    return;
  }
  sendAll(fd, "HTTP/1.1 " + std::to_string(reply.status) +
                  " Fake\r\nContent-Type: application/json\r\nContent-Length: " +
                  std::to_string(reply.body.size()) + "\r\nConnection: close\r\n\r\n" +
                  reply.body);
}

}  // namespace klipora::testing
