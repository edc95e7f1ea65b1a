#pragma once

#include "tessaline/log.h"

namespace VeltranoSDK {

// True when a message of this level would be seen by anybody, be it the lock hook
// alone: a loop over thousands of strips asks once instead of formatting for nobody.
bool SomebodyListens(int level);

// For the SIGINT handler. While one exists, what its thread logs goes nowhere: a sink may
// block for ever, and the interrupted thread may hold what the sink wants.
class LogSilence {
 public:
  LogSilence();
  ~LogSilence();
  LogSilence(const LogSilence&) = delete;
  LogSilence& operator=(const LogSilence&) = delete;
};

// True inside a sink or lock hook, and in a handler that interrupted one.
bool ThisThreadIsLogging();

// Has the time zone at hand, which takes the heap and must not happen in a signal handler.
void LoadTimeZone();

// One line of the log, which names the place where it is made, in a format that the compiler
// checks: LogError()("%s: no answer", name).
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
