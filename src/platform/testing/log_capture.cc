#include "platform/testing/log_capture.h"

namespace klipora::testing {

class ScopedLogCapture::Sink final : public log::LogSink {
 public:
  void write(log::Level, log::Channel, std::string_view line) override {
    std::lock_guard lock(mutex);
    lines.emplace_back(line);
  }
  std::mutex mutex;
  std::vector<std::string> lines;
};

ScopedLogCapture::ScopedLogCapture() : sink_(std::make_shared<Sink>()) { log::addSink(sink_); }

ScopedLogCapture::~ScopedLogCapture() { log::removeSink(sink_); }

std::vector<std::string> ScopedLogCapture::lines() const {
  std::lock_guard lock(sink_->mutex);
  return sink_->lines;
}

bool ScopedLogCapture::contains(const std::string& fragment) const {
  return !matching(fragment).empty();
}

std::vector<std::string> ScopedLogCapture::matching(const std::string& fragment) const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    if (line.find(fragment) != std::string::npos) out.push_back(line);
  }
  return out;
}

void ScopedLogCapture::clear() {
  std::lock_guard lock(sink_->mutex);
  sink_->lines.clear();
}

}  // namespace klipora::testing
