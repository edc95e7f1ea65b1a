#pragma once

#include "tessaline/log.h"

namespace VeltranoSDK {

// True when somebody would see a message of this level, even if only the lock hook. A loop over
// thousands of strips checks once instead of formatting lines that nobody reads.
bool SomebodyListens(int level);

// For the SIGINT handler. While one exists, messages of its thread are dropped: a sink may block
// for ever, or need what the interrupted thread holds.
class LogSilence {
 public:
  LogSilence();
  ~LogSilence();
  LogSilence(const LogSilence&) = delete;
  LogSilence& operator=(const LogSilence&) = delete;
};

// True inside a sink or lock hook, and in a handler that interrupted one.
bool ThisThreadIsLogging();

// Loads the time zone now: that uses the heap and must not happen in a signal handler.
void LoadTimeZone();

// One log line with the caller's file and line; the compiler checks its format: LogError()("%s: no
// answer", name).
template <int level>
class LogLine {
 public:
  explicit LogLine(const char* file = __builtin_FILE(), int line = __builtin_LINE())
      : file_(file), line_(line) {}

  [[gnu::format(printf, 2, 3)]] void operator()(const char* format, ...) const;

 private:
  const char* file_;
  int line_;
};

using LogTrace = LogLine<TESSALINE_LOG_TRACE>;
using LogDebug = LogLine<TESSALINE_LOG_DEBUG>;
using LogInfo = LogLine<TESSALINE_LOG_INFO>;
using LogError = LogLine<TESSALINE_LOG_ERROR>;

// The entry line of nearly every function: Trace(__func__).
inline void Trace(const char* function, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
  log_log(TESSALINE_LOG_TRACE, file, line, "%s", function);
}

}  // namespace VeltranoSDK
