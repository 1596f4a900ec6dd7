// AsioStopSignals: SIGINT and SIGTERM, reported on the main loop.
#pragma once

#include <asio/signal_set.hpp>

#include "platform/main_loop.h"

namespace klipora {

class AsioStopSignals final : public StopSignals {
 public:
  explicit AsioStopSignals(asio::io_context& context);
  ~AsioStopSignals() override;
  void watch(std::function<void(std::string_view name)> received) override;
  void cancel() override;

 private:
  void wait();

  asio::signal_set signals_;
  std::function<void(std::string_view)> received_;
};

}  // namespace klipora
