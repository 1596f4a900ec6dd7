#include "platform/linux/unix_socket_control_channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <asio/local/stream_protocol.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <chrono>
#include <deque>
#include <set>

namespace klipora {

using asio::local::stream_protocol;

struct UnixSocketControlServer::State {
  std::unique_ptr<stream_protocol::acceptor> acceptor;
  Handler handler;
  std::string path;
  bool open = false;
  std::set<std::shared_ptr<stream_protocol::socket>> connections;
};

namespace {

// One client connection: requests are answered in the order they arrived,
// even when a later one is answered first by the handler.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<stream_protocol::socket> socket,
             std::shared_ptr<UnixSocketControlServer::State> state)
      : socket_(std::move(socket)), state_(std::move(state)) {}

  void readNext() {
    auto self = shared_from_this();
    asio::async_read_until(*socket_, buffer_, '\n',
                           [self](const asio::error_code& ec, size_t n) { self->onLine(ec, n); });
  }

 private:
  struct Pending {
    bool ready = false;
    std::string line;
  };

  void onLine(const asio::error_code& ec, size_t n) {
    if (ec || !state_->open) {
      if (ec == asio::error::not_found) {
        // The request outgrew the buffer's limit.
        auto slot = std::make_shared<Pending>();
        slot->ready = true;
        slot->line = R"({"ok":false,"error":"request too long"})";
        pending_.push_back(slot);
        flush(/*closeAfter=*/true);
        return;
      }
      finish();
      return;
    }
    std::string line(asio::buffers_begin(buffer_.data()), asio::buffers_begin(buffer_.data()) + n);
    buffer_.consume(n);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    auto slot = std::make_shared<Pending>();
    pending_.push_back(slot);
    std::weak_ptr<Connection> weak = shared_from_this();
    state_->handler(line, [weak, slot](const std::string& reply) {
      auto self = weak.lock();
      if (!self || slot->ready) return;
      slot->ready = true;
      slot->line = reply;
      self->flush(false);
    });
    readNext();
  }

  void flush(bool closeAfter) {
    if (writing_) return;
    if (pending_.empty() || !pending_.front()->ready) {
      if (closeAfter) finish();
      return;
    }
    writing_ = true;
    auto out = std::make_shared<std::string>(pending_.front()->line + "\n");
    pending_.pop_front();
    auto self = shared_from_this();
    asio::async_write(*socket_, asio::buffer(*out),
                      [self, out, closeAfter](const asio::error_code& ec, size_t) {
                        self->writing_ = false;
                        if (ec) return self->finish();
                        self->flush(closeAfter);
                      });
  }

  void finish() {
    asio::error_code ignored;
    socket_->close(ignored);
    state_->connections.erase(socket_);
  }

  std::shared_ptr<stream_protocol::socket> socket_;
  std::shared_ptr<UnixSocketControlServer::State> state_;
  asio::streambuf buffer_{ControlChannelServer::kMaxLineBytes};
  std::deque<std::shared_ptr<Pending>> pending_;
  bool writing_ = false;
};

void AcceptNext(asio::io_context& context, std::shared_ptr<UnixSocketControlServer::State> state) {
  auto socket = std::make_shared<stream_protocol::socket>(context);
  state->acceptor->async_accept(*socket, [&context, state, socket](const asio::error_code& ec) {
    if (!state->open) return;
    if (!ec) {
      state->connections.insert(socket);
      std::make_shared<Connection>(socket, state)->readNext();
    }
    AcceptNext(context, state);
  });
}

}  // namespace

UnixSocketControlServer::UnixSocketControlServer(asio::io_context& context)
    : context_(context), state_(std::make_shared<State>()) {}

UnixSocketControlServer::~UnixSocketControlServer() { close(); }

Status UnixSocketControlServer::listen(const std::string& address, Handler handler) {
  if (state_->open) return Status::FailedPrecondition("already listening");
  if (address.size() >= sizeof(sockaddr_un::sun_path)) {
    return Status::InvalidArgument("socket path too long (" + std::to_string(address.size()) +
                                   " bytes): " + address);
  }
  // The folder is the user's alone; an existing one is left as it is.
  std::string folder = address.substr(0, address.rfind('/'));
  if (!folder.empty() && ::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    return Status::FromErrno(errno, "cannot create " + folder);
  }
  // The caller holds the daemon lock, so a socket file here is a stale one.
  ::unlink(address.c_str());
  auto acceptor = std::make_unique<stream_protocol::acceptor>(context_);
  asio::error_code ec;
  stream_protocol::endpoint endpoint(address);
  acceptor->open(endpoint.protocol(), ec);
  if (!ec) {
    // No moment in which others could connect: the file is born 0600.
    mode_t old = ::umask(0177);
    acceptor->bind(endpoint, ec);
    ::umask(old);
  }
  if (!ec) acceptor->listen(asio::socket_base::max_listen_connections, ec);
  if (ec) return Status::IoError("cannot listen at " + address + ": " + ec.message());
  ::chmod(address.c_str(), 0600);
  state_->acceptor = std::move(acceptor);
  state_->handler = std::move(handler);
  state_->path = address;
  state_->open = true;
  AcceptNext(context_, state_);
  return Status::Ok();
}

void UnixSocketControlServer::close() {
  if (!state_->open) return;
  state_->open = false;
  asio::error_code ignored;
  state_->acceptor->close(ignored);
  for (const auto& socket : state_->connections) socket->close(ignored);
  state_->connections.clear();
  ::unlink(state_->path.c_str());
}

Result<std::string> UnixSocketControlClient::request(const std::string& address,
                                                     const std::string& request,
                                                     double timeoutSeconds) {
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  if (address.size() >= sizeof sa.sun_path) {
    return Err(Status::InvalidArgument("socket path too long: " + address));
  }
  address.copy(sa.sun_path, address.size());
  int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return Err(Status::FromErrno(errno, "socket"));
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  if (::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
    int err = errno;
    if (err == ENOENT || err == ECONNREFUSED) {
      return Err(Status::Unavailable("no daemon listens at " + address));
    }
    return Err(Status::FromErrno(err, "cannot connect to " + address));
  }
  std::string out = request + "\n";
  for (size_t sent = 0; sent < out.size();) {
    ssize_t n = ::send(fd, out.data() + sent, out.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Err(Status::FromErrno(errno, "cannot send to " + address));
    sent += static_cast<size_t>(n);
  }
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration<double>(timeoutSeconds);
  std::string reply;
  char buf[4096];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return Err(Status::TimedOut("no reply from the daemon in time"));
    pollfd p{fd, POLLIN, 0};
    int ready = ::poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return Err(Status::FromErrno(errno, "poll"));
    if (ready == 0) continue;
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Err(Status::FromErrno(errno, "cannot read from " + address));
    if (n == 0) return Err(Status::IoError("the daemon closed the connection"));
    reply.append(buf, static_cast<size_t>(n));
    if (auto nl = reply.find('\n'); nl != std::string::npos) return reply.substr(0, nl);
    if (reply.size() > ControlChannelServer::kMaxLineBytes * 64) {
      return Err(Status::IoError("reply too long"));
    }
  }
}

}  // namespace klipora
