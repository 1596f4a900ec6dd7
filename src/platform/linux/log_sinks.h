// The real log sinks: standard error, a log file (Diagnostics/klipora.log, and
// Diagnostics/classify.log for the classifier's trail) and syslog(3).
// Each is safe from any thread (the log calls sinks under its own lock).
#pragma once

#include <cstdio>
#include <string>

#include "platform/log.h"

namespace klipora {

class StderrLogSink final : public log::LogSink {
 public:
  explicit StderrLogSink(log::Level minimum) : minimum_(minimum) {}
  void write(log::Level level, log::Channel channel, std::string_view line) override;

 private:
  log::Level minimum_;
};

// Appends main-channel lines to `mainPath` and classify-channel lines to
// `classifyPath`, each prefixed with a local timestamp. A file that cannot be
// opened is skipped silently: logging never stops the program.
class FileLogSink final : public log::LogSink {
 public:
  FileLogSink(const std::string& mainPath, const std::string& classifyPath);
  ~FileLogSink() override;
  void write(log::Level level, log::Channel channel, std::string_view line) override;

 private:
  std::FILE* main_ = nullptr;
  std::FILE* classify_ = nullptr;
};

class SyslogLogSink final : public log::LogSink {
 public:
  SyslogLogSink();
  void write(log::Level level, log::Channel channel, std::string_view line) override;
};

}  // namespace klipora
