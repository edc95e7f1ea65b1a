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

// A format that remembers where it was written.
struct Message {
  const char* format;
  const char* file;
  int line;

  // NOLINTNEXTLINE(google-explicit-constructor): a literal is meant to become one
  Message(const char* text, const char* source = __builtin_FILE(),
          int source_line = __builtin_LINE())
      : format(text), file(source), line(source_line) {}
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"

template <typename... Args>
void LogDebug(Message message, Args... args) {
  log_log(TESSALINE_LOG_DEBUG, message.file, message.line, message.format, args...);
}

template <typename... Args>
void LogInfo(Message message, Args... args) {
  log_log(TESSALINE_LOG_INFO, message.file, message.line, message.format, args...);
}

template <typename... Args>
void LogError(Message message, Args... args) {
  log_log(TESSALINE_LOG_ERROR, message.file, message.line, message.format, args...);
}

template <typename... Args>
void LogTrace(Message message, Args... args) {
  log_log(TESSALINE_LOG_TRACE, message.file, message.line, message.format, args...);
}

#pragma GCC diagnostic pop

// The entry line of nearly every function: Trace(__func__).
inline void Trace(const char* function, const char* file = __builtin_FILE(),
                  int line = __builtin_LINE()) {
  log_log(TESSALINE_LOG_TRACE, file, line, "%s", function);
}

}  // namespace VeltranoSDK
