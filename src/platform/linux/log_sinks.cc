#include "platform/linux/log_sinks.h"

#include <syslog.h>

#include <ctime>

namespace klipora {
namespace {

void WriteStamped(std::FILE* file, std::string_view line) {
  if (!file) return;
  time_t now = time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tm);
  std::fprintf(file, "%s %.*s\n", stamp, static_cast<int>(line.size()), line.data());
  std::fflush(file);
}

}  // namespace

void StderrLogSink::write(log::Level level, log::Channel channel, std::string_view line) {
  if (level < minimum_ || channel != log::Channel::kMain) return;
  std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

FileLogSink::FileLogSink(const std::string& mainPath, const std::string& classifyPath)
    : main_(std::fopen(mainPath.c_str(), "ae")), classify_(std::fopen(classifyPath.c_str(), "ae")) {}

FileLogSink::~FileLogSink() {
  if (main_) std::fclose(main_);
  if (classify_) std::fclose(classify_);
}

void FileLogSink::write(log::Level, log::Channel channel, std::string_view line) {
  WriteStamped(channel == log::Channel::kMain ? main_ : classify_, line);
}

SyslogLogSink::SyslogLogSink() { openlog("klipora", LOG_PID, LOG_USER); }

void SyslogLogSink::write(log::Level level, log::Channel channel, std::string_view line) {
  if (channel != log::Channel::kMain) return;
  int priority = level == log::Level::kError     ? LOG_ERR
                 : level == log::Level::kWarning ? LOG_WARNING
                 : level == log::Level::kDebug   ? LOG_DEBUG
                                                 : LOG_INFO;
  syslog(priority, "%.*s", static_cast<int>(line.size()), line.data());
}

}  // namespace klipora
