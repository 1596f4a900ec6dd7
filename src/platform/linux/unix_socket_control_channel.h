// The control channel over a Unix domain socket. The server runs on the main
// loop's io_context (Asio local stream sockets): it reads newline-ended
// requests, hands each to the handler and writes the replies back in order.
// The socket file gets mode 0600; its folder is the caller's to protect.
// The client is plain blocking POSIX with a poll() deadline.
#pragma once

#include <asio/io_context.hpp>
#include <memory>

#include "platform/control_channel.h"

namespace klipora {

class UnixSocketControlServer final : public ControlChannelServer {
 public:
  struct State;  // shared with the connections; internal

  explicit UnixSocketControlServer(asio::io_context& context);
  ~UnixSocketControlServer() override;

  Status listen(const std::string& address, Handler handler) override;
  void close() override;

 private:
  asio::io_context& context_;
  std::shared_ptr<State> state_;
};

class UnixSocketControlClient final : public ControlChannelClient {
 public:
  Result<std::string> request(const std::string& address, const std::string& request,
                              double timeoutSeconds) override;
};

}  // namespace klipora
