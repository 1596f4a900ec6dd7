// The log: one line per event, "[Klipora][Area] message", fanned out to the
// installed sinks (standard error, Diagnostics/klipora.log, syslog in the real
// program; a recording sink in tests). Detail lines under an event are
// indented and begin with "→", "-" or "•", as the callers write them.
//
// The classifier's trail ("[CLASSIFY] key=value …") is a second channel that
// sinks may route to their own file.
//
// Thread rules: every function here is safe from any thread; sinks are called
// under one lock, in the order they were added.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace klipora::log {

enum class Level { kDebug, kInfo, kWarning, kError };
enum class Channel { kMain, kClassify };

class LogSink {
 public:
  virtual ~LogSink() = default;
  // `line` is complete, without a trailing newline.
  virtual void write(Level level, Channel channel, std::string_view line) = 0;
};

void addSink(std::shared_ptr<LogSink> sink);
void removeSink(const std::shared_ptr<LogSink>& sink);

// Writes "[Klipora][area] message"; an empty area writes "[Klipora] message".
void line(Level level, std::string_view area, std::string_view message);
// printf-style variants of line().
void info(std::string_view area, const char* format, ...) __attribute__((format(printf, 2, 3)));
void warning(std::string_view area, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
void error(std::string_view area, const char* format, ...) __attribute__((format(printf, 2, 3)));
void debug(std::string_view area, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Writes "[CLASSIFY] " + message on the classify channel.
void classify(std::string_view message);

// "YES"/"NO", the way the log prints booleans.
inline const char* yesNo(bool value) { return value ? "YES" : "NO"; }

}  // namespace klipora::log
