/**
 * @file
 * The logger of libtessaline.
 *
 * One process-wide logger. The library reports through it. An application may use it
 * for lines of its own, change how much reaches standard error, and add sinks.
 *
 * The logger has no allocation, no thread and no lock of its own: when several threads
 * log, their lines can interleave unless a lock hook is set. Level and quiet flag may be
 * set at any time. One thread may add sinks while others log. Set the hook before starting
 * threads. Times are in the time zone of the process's last tzset().
 */
#ifndef TESSALINE_LOG_H
#define TESSALINE_LOG_H

#include <stdarg.h>
#include <stdbool.h>
#include <stdio.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Levels, lowest first. The library uses all but WARN and FATAL. */
enum {
  TESSALINE_LOG_TRACE,
  TESSALINE_LOG_DEBUG,
  TESSALINE_LOG_INFO,
  TESSALINE_LOG_WARN,
  TESSALINE_LOG_ERROR,
  TESSALINE_LOG_FATAL
};

/** One message, as a sink receives it. Valid only during the sink's call. */
typedef struct {
  va_list ap;       /**< the arguments, already started */
  const char* fmt;  /**< printf format */
  const char* file; /**< source file of the message, relative to the source tree */
  struct tm* time;  /**< local time of the message */
  void* udata;      /**< the udata the sink was added with */
  int line;         /**< source line of the message */
  int level;        /**< TESSALINE_LOG_TRACE .. TESSALINE_LOG_FATAL */
} log_Event;

/** A sink: called once per message at or above its level, on the logging thread. */
typedef void (*log_LogFn)(log_Event* ev);

/** A lock hook: called with true before a message's first output, false after its last. */
typedef void (*log_LockFn)(bool lock, void* udata);

/**
 * Logs one message.
 *
 * @param level  TESSALINE_LOG_TRACE (0) .. TESSALINE_LOG_FATAL (5)
 * @param file   source file named in the line
 * @param line   source line named in the line
 * @param fmt    printf format, with its arguments after it
 *
 * Writes "HH:MM:SS LEVEL file:line: message" and a newline to standard error, unless
 * quiet or below the level of log_set_level(). Then calls every sink whose own level is
 * not above this one, in the order added.
 *
 * Threads: any; see the lock hook.
 */
void log_log(int level, const char* file, int line, const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

/**
 * Sets the lowest level written to standard error.
 *
 * @param level  TESSALINE_LOG_TRACE .. TESSALINE_LOG_FATAL; not checked, so 6 silences the
 *               stream. Initially TESSALINE_LOG_TRACE; GetLibVersion() sets
 *               TESSALINE_LOG_ERROR.
 */
void log_set_level(int level);

/** Stops (true) or resumes (false) output to standard error. Sinks still run. */
void log_set_quiet(bool enable);

/**
 * Sets the lock hook. It is called exactly twice for every message, even one that nobody
 * receives. The library's SIGINT handler logs too, unless it interrupts a message. So if
 * you take the hook's lock outside the hook, block SIGINT meanwhile; otherwise the handler
 * may wait for the lock until the process is ended.
 *
 * @param fn     the hook; NULL removes it
 * @param udata  passed to the hook
 */
void log_set_lock(log_LockFn fn, void* udata);

/**
 * Adds a sink. Sinks cannot be removed.
 *
 * @param fn     the sink. It may block: SIGINT still ends the process.
 * @param udata  passed to it in log_Event::udata
 * @param level  lowest level it receives
 * @return 0; -1 when there are already 32 sinks or fn is NULL (nothing changes).
 */
int log_add_callback(log_LogFn fn, void* udata, int level);

/**
 * Adds a file as a sink: "YYYY-MM-DD HH:MM:SS LEVEL file:line: message", one line per
 * message, flushed after each. The caller keeps the file and must leave it open.
 *
 * @return as log_add_callback(); -1 for NULL
 */
int log_add_fp(FILE* fp, int level);

/**
 * The name of a level: "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL".
 *
 * @param level  TESSALINE_LOG_TRACE .. TESSALINE_LOG_FATAL; any other value gives "?".
 */
const char* log_level_string(int level);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
