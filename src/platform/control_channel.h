// The daemon's control channel: a running `klipora run` answers one-line
// requests from other klipora processes on a local socket (a Unix domain
// socket of mode 0600 on Linux), one JSON request and one JSON reply per
// line. What the lines mean is the caller's business (app/control_requests.h).
//
// Thread rules: ControlChannelServer is used on the main thread and calls its
// handler there; the handler may answer later (an import finishing), also on
// the main thread. ControlChannelClient blocks the calling thread.
#pragma once

#include <functional>
#include <string>

#include "platform/status.h"

namespace klipora {

class ControlChannelServer {
 public:
  using Reply = std::function<void(const std::string& line)>;
  using Handler = std::function<void(const std::string& request, Reply reply)>;

  ControlChannelServer() = default;
  ControlChannelServer(const ControlChannelServer&) = delete;
  ControlChannelServer& operator=(const ControlChannelServer&) = delete;
  virtual ~ControlChannelServer() = default;

  // Listens at `address`, creating its folder (mode 0700) when missing and
  // replacing a stale socket file left there. Requests
  // longer than kMaxLineBytes are answered with an error by the server.
  virtual Status listen(const std::string& address, Handler handler) = 0;
  // Stops listening, drops open connections and removes the socket file.
  virtual void close() = 0;

  static constexpr size_t kMaxLineBytes = 1 << 20;
};

class ControlChannelClient {
 public:
  ControlChannelClient() = default;
  ControlChannelClient(const ControlChannelClient&) = delete;
  ControlChannelClient& operator=(const ControlChannelClient&) = delete;
  virtual ~ControlChannelClient() = default;

  // Sends `request` (one line, no newline) and returns the reply line.
  // Unavailable when nobody listens at `address`; TimedOut when no reply came
  // within `timeoutSeconds`; IoError when the connection broke.
  virtual Result<std::string> request(const std::string& address, const std::string& request,
                                      double timeoutSeconds) = 0;
};

}  // namespace klipora
