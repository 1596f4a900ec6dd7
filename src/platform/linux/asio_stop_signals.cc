#include "platform/linux/asio_stop_signals.h"

#include <csignal>

namespace klipora {

AsioStopSignals::AsioStopSignals(asio::io_context& context) : signals_(context, SIGINT, SIGTERM) {}

AsioStopSignals::~AsioStopSignals() { cancel(); }

void AsioStopSignals::watch(std::function<void(std::string_view name)> received) {
  received_ = std::move(received);
  wait();
}

void AsioStopSignals::cancel() {
  received_ = nullptr;
  asio::error_code ignored;
  signals_.cancel(ignored);
}

void AsioStopSignals::wait() {
  signals_.async_wait([this](const asio::error_code& ec, int signal) {
    if (ec || !received_) return;
    auto received = received_;
    received(signal == SIGINT ? "SIGINT" : "SIGTERM");
    if (received_) wait();
  });
}

}  // namespace klipora
