#include "platform/linux/http_client.h"

#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <optional>

namespace klipora {
namespace {

constexpr size_t kMaxReply = 32u << 20;

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  void reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

// Deadline and cancellation of one exchange: wait() polls the socket and the
// wake-up descriptor that the cancel handler writes to.
class Waiter {
 public:
  Waiter(const HttpCall& call, std::string where)
      : cancel_(call.cancel), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
        where_(std::move(where)) {
    if (call.timeoutSeconds > 0) {
      deadline_ = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(call.timeoutSeconds));
    }
    if (cancel_) {
      int fd = wake_.get();
      cancel_->setHandler([fd] {
        uint64_t one = 1;
        (void)!::write(fd, &one, sizeof one);
      });
    }
  }
  ~Waiter() {
    if (cancel_) cancel_->clearHandler();
  }

  // Waits until `fd` is ready for `events`.
  Status wait(int fd, short events) {
    for (;;) {
      int timeout = -1;
      if (deadline_) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        *deadline_ - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) return Status::TimedOut(where_ + " did not answer in time");
        timeout = static_cast<int>(std::min<long long>(left, 1 << 30));
      }
      pollfd fds[2] = {{fd, events, 0}, {wake_.get(), POLLIN, 0}};
      int n = ::poll(fds, 2, timeout);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return Status::FromErrno(errno, "poll");
      if (fds[1].revents) return Status::Cancelled("the request to " + where_ + " was cancelled");
      if (n > 0) return Status::Ok();
    }
  }

 private:
  CancelSignal* cancel_;
  Fd wake_;
  std::string where_;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
};

Result<int> connectTo(const HttpUrl& url, Waiter& waiter, const std::string& where) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (int rc = ::getaddrinfo(url.host.c_str(), url.port.c_str(), &hints, &found); rc != 0) {
    return Err(Status::Unavailable("cannot reach " + where + ": " + ::gai_strerror(rc)));
  }
  std::string failure = "no address";
  int result = -1;
  for (addrinfo* a = found; a && result < 0; a = a->ai_next) {
    int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
    if (fd < 0) continue;
    if (::connect(fd, a->ai_addr, a->ai_addrlen) != 0 && errno != EINPROGRESS) {
      failure = std::strerror(errno);
      ::close(fd);
      continue;
    }
    if (Status s = waiter.wait(fd, POLLOUT); !s.ok()) {
      ::close(fd);
      ::freeaddrinfo(found);
      return Err(s);
    }
    int error = 0;
    socklen_t length = sizeof error;
    ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    if (error != 0) {
      failure = std::strerror(error);
      ::close(fd);
      continue;
    }
    result = fd;
  }
  ::freeaddrinfo(found);
  if (result < 0) return Err(Status::Unavailable("cannot reach " + where + ": " + failure));
  return result;
}

// The body of a chunked reply once the last chunk has arrived.
std::optional<std::string> unchunk(std::string_view data, bool* malformed) {
  std::string body;
  size_t at = 0;
  for (;;) {
    size_t lineEnd = data.find("\r\n", at);
    if (lineEnd == std::string_view::npos) return std::nullopt;
    size_t size = 0;
    auto [end, ec] = std::from_chars(data.data() + at, data.data() + lineEnd, size, 16);
    if (ec != std::errc() || end == data.data() + at) {
      *malformed = true;
      return std::nullopt;
    }
    at = lineEnd + 2;
    if (size == 0) return body;
    // Compared so that no sum can wrap: a chunk of any announced size is
    // waited for, and the reply's limit ends the wait.
    if (size > data.size() - at || data.size() - at - size < 2) return std::nullopt;
    body.append(data.substr(at, size));
    at += size + 2;
  }
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

struct Head {
  int status = 0;
  std::optional<size_t> contentLength;
  bool chunked = false;
  size_t bodyStart = 0;
};

std::optional<Head> parseHead(const std::string& data, size_t headEnd) {
  Head head;
  head.bodyStart = headEnd + 4;
  size_t lineEnd = data.find("\r\n");
  std::string_view statusLine(data.data(), lineEnd);
  if (statusLine.substr(0, 5) != "HTTP/") return std::nullopt;
  size_t space = statusLine.find(' ');
  if (space == std::string_view::npos) return std::nullopt;
  auto [end, ec] = std::from_chars(statusLine.data() + space + 1,
                                   statusLine.data() + statusLine.size(), head.status);
  if (ec != std::errc()) return std::nullopt;
  size_t at = lineEnd + 2;
  while (at < headEnd) {
    size_t next = data.find("\r\n", at);
    std::string line = data.substr(at, next - at);
    at = next + 2;
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::string name = lower(line.substr(0, colon));
    std::string value = line.substr(colon + 1);
    value.erase(0, value.find_first_not_of(" \t"));
    if (name == "content-length") {
      size_t length = 0;
      auto [e, c] = std::from_chars(value.data(), value.data() + value.size(), length);
      if (c != std::errc()) return std::nullopt;
      head.contentLength = length;
    } else if (name == "transfer-encoding" && lower(value).find("chunked") != std::string::npos) {
      head.chunked = true;
    }
  }
  return head;
}

}  // namespace

Result<HttpResponse> httpExchange(const HttpUrl& url, const HttpCall& call) {
  const std::string where = url.host + ":" + url.port;
  Waiter waiter(call, where);
  Fd socket;
  {
    ASSIGN_OR_RETURN(int fd, connectTo(url, waiter, where));
    socket.reset(fd);
  }
  std::string request = call.method + " " + url.path + call.path + " HTTP/1.1\r\nHost: " +
                        url.host + ":" + url.port +
                        "\r\nAccept: application/json\r\nConnection: close\r\n";
  if (!call.body.empty() || call.method == "POST") {
    request += "Content-Type: application/json\r\nContent-Length: " +
               std::to_string(call.body.size()) + "\r\n";
  }
  request += "\r\n";
  request += call.body;
  for (size_t sent = 0; sent < request.size();) {
    RETURN_IF_ERROR(waiter.wait(socket.get(), POLLOUT));
    ssize_t n = ::send(socket.get(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (n < 0) return Err(Status::Unavailable(where + " dropped the connection: " +
                                              std::strerror(errno)));
    sent += static_cast<size_t>(n);
  }

  std::string data;
  char buffer[16384];
  for (;;) {
    RETURN_IF_ERROR(waiter.wait(socket.get(), POLLIN));
    ssize_t n = ::recv(socket.get(), buffer, sizeof buffer, 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (n < 0) {
      return Err(Status::Unavailable(where + " dropped the connection: " + std::strerror(errno)));
    }
    data.append(buffer, static_cast<size_t>(n));
    if (data.size() > kMaxReply) {
      return Err(Status::InvalidArgument(where + " sent a reply of more than 32 MB"));
    }
    auto reply = parseHttpReply(data, /*atEnd=*/n == 0);
    if (!reply) return Err(Status(reply.error().code(), where + " " + reply.error().message()));
    if (*reply) return std::move(**reply);
  }
}

Result<std::optional<HttpResponse>> parseHttpReply(std::string_view data, bool atEnd) {
  const Status cut = Status::Unavailable("closed the connection before the reply was complete");
  size_t headEnd = data.find("\r\n\r\n");
  if (headEnd == std::string_view::npos) {
    if (data.size() >= 5 && data.substr(0, 5) != "HTTP/") {
      return Err(Status::Corruption("did not answer in HTTP"));
    }
    if (atEnd) return Err(cut);
    return std::optional<HttpResponse>();
  }
  auto head = parseHead(std::string(data.substr(0, headEnd + 4)), headEnd);
  if (!head) return Err(Status::Corruption("did not answer in HTTP"));
  std::string_view body = data.substr(head->bodyStart);
  if (head->chunked) {
    bool malformed = false;
    auto whole = unchunk(body, &malformed);
    if (malformed) return Err(Status::Corruption("sent a malformed chunked reply"));
    if (whole) return std::optional<HttpResponse>(HttpResponse{head->status, std::move(*whole)});
  } else if (head->contentLength) {
    if (body.size() >= *head->contentLength) {
      return std::optional<HttpResponse>(
          HttpResponse{head->status, std::string(body.substr(0, *head->contentLength))});
    }
  } else if (atEnd) {
    return std::optional<HttpResponse>(HttpResponse{head->status, std::string(body)});
  }
  if (atEnd) return Err(cut);
  return std::optional<HttpResponse>();
}

}  // namespace klipora
