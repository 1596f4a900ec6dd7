#include "platform/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace klipora::log {
namespace {

std::mutex& Mutex() {
  static std::mutex m;
  return m;
}

std::vector<std::shared_ptr<LogSink>>& Sinks() {
  static std::vector<std::shared_ptr<LogSink>> sinks;
  return sinks;
}

void Emit(Level level, Channel channel, std::string_view text) {
  std::lock_guard lock(Mutex());
  for (auto& sink : Sinks()) sink->write(level, channel, text);
}

std::string VFormat(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (n <= 0) return {};
  std::string out(static_cast<size_t>(n), '\0');
  std::vsnprintf(out.data(), out.size() + 1, format, args);
  return out;
}

}  // namespace

void addSink(std::shared_ptr<LogSink> sink) {
  std::lock_guard lock(Mutex());
  Sinks().push_back(std::move(sink));
}

void removeSink(const std::shared_ptr<LogSink>& sink) {
  std::lock_guard lock(Mutex());
  auto& sinks = Sinks();
  sinks.erase(std::remove(sinks.begin(), sinks.end(), sink), sinks.end());
}

void line(Level level, std::string_view area, std::string_view message) {
  std::string text = "[Klipora]";
  if (!area.empty()) {
    text += '[';
    text += area;
    text += ']';
  }
  text += ' ';
  text += message;
  Emit(level, Channel::kMain, text);
}

#define KLIPORA_LOG_VARIANT(name, level)                      \
  void name(std::string_view area, const char* format, ...) { \
    va_list args;                                             \
    va_start(args, format);                                   \
    std::string message = VFormat(format, args);              \
    va_end(args);                                             \
    line(level, area, message);                               \
  }

KLIPORA_LOG_VARIANT(info, Level::kInfo)
KLIPORA_LOG_VARIANT(warning, Level::kWarning)
KLIPORA_LOG_VARIANT(error, Level::kError)
KLIPORA_LOG_VARIANT(debug, Level::kDebug)
#undef KLIPORA_LOG_VARIANT

void classify(std::string_view message) {
  std::string text = "[CLASSIFY] ";
  text += message;
  Emit(Level::kInfo, Channel::kClassify, text);
}

}  // namespace klipora::log
