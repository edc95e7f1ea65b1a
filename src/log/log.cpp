#include "tessaline/log.h"

#include <array>
#include <atomic>
#include <cstddef>

#include "log/Log.h"
#include "thread/NotCancellable.h"

namespace {

constexpr std::array<const char*, 6> kLevelNames{"TRACE", "DEBUG", "INFO",
                                                 "WARN",  "ERROR", "FATAL"};
constexpr std::size_t kMaxSinks = 32;

// Entries are filled while other threads log: fn is written last and read first.
struct Sink {
  std::atomic<log_LogFn> fn;
  void* udata;
  int level;
};

struct Logger {
  void* udata;
  log_LockFn lock;
  std::atomic<int> level;
  std::atomic<bool> quiet;
  std::array<Sink, kMaxSinks> callbacks;
};

// All zero at load time: everything from TRACE up goes to standard error.
constinit Logger logger{};

// In the thread's static storage: the first access must not use the heap either.
[[gnu::tls_model("initial-exec")]] constinit thread_local int lines_under_way = 0;
[[gnu::tls_model("initial-exec")]] constinit thread_local int silences = 0;

class LineUnderWay {
 public:
  LineUnderWay() { ++lines_under_way; }
  ~LineUnderWay() { --lines_under_way; }
  LineUnderWay(const LineUnderWay&) = delete;
  LineUnderWay& operator=(const LineUnderWay&) = delete;
};

// Prints a line that starts with "<time> <level padded to 5> <file>:<line>: ".
template <std::size_t kTimeSize>
void WriteLine(FILE* out, const char* time_format, log_Event* ev) {
  std::array<char, kTimeSize> time_text;
  time_text[strftime(time_text.data(), time_text.size(), time_format, ev->time)] = '\0';
  fprintf(out, "%s %-5s %s:%d: ", time_text.data(), log_level_string(ev->level), ev->file,
          ev->line);
  vfprintf(out, ev->fmt, ev->ap);
  fputc('\n', out);
  fflush(out);
}

void file_callback(log_Event* ev) {
  WriteLine<64>(static_cast<FILE*>(ev->udata), "%Y-%m-%d %H:%M:%S", ev);
}

// The caller provides the broken-down time: messages of several threads must not share localtime's
// static record. The time zone is that of the process's last tzset(): checking for a change uses
// the heap, which the SIGINT handler must not need.
void TakeTime(log_Event* ev, struct tm* storage) {
  const time_t now = time(nullptr);
  ev->time = localtime_r(&now, storage);
}

bool ReachesStandardError(int level) {
  return !logger.quiet.load(std::memory_order_relaxed) &&
         level >= logger.level.load(std::memory_order_relaxed);
}

// Called several times per frame, so it stops at the first free entry.
bool ReachesASink(int level) {
  for (const Sink& sink : logger.callbacks) {
    if (sink.fn.load(std::memory_order_acquire) == nullptr) return false;
    if (sink.level <= level) return true;
  }
  return false;
}

}  // namespace

namespace VeltranoSDK {

bool SomebodyListens(int level) {
  return silences == 0 &&
         (ReachesStandardError(level) || logger.lock != nullptr || ReachesASink(level));
}

LogSilence::LogSilence() { ++silences; }

LogSilence::~LogSilence() { --silences; }

bool ThisThreadIsLogging() { return lines_under_way > 0; }

void LoadTimeZone() { tzset(); }

namespace {

void Write(int level, const char* file, int line, const char* format, va_list arguments) {
  if (!SomebodyListens(level)) return;
  // SIGINT stays open: a sink may block, and an interrupt must still end the process.
  const NotCancellable whole;
  const LineUnderWay line_under_way;

  log_Event ev{};
  ev.fmt = format;
  ev.file = file;
  ev.line = line;
  ev.level = level;
  struct tm broken_down;

  if (logger.lock != nullptr) logger.lock(true, logger.udata);

  if (ReachesStandardError(level)) {
    TakeTime(&ev, &broken_down);
    va_copy(ev.ap, arguments);
    WriteLine<16>(stderr, "%H:%M:%S", &ev);
    va_end(ev.ap);
  }

  for (const Sink& sink : logger.callbacks) {
    const log_LogFn write = sink.fn.load(std::memory_order_acquire);
    if (write == nullptr) break;
    if (sink.level > level) continue;
    if (ev.time == nullptr) TakeTime(&ev, &broken_down);
    ev.udata = sink.udata;
    va_copy(ev.ap, arguments);
    write(&ev);
    va_end(ev.ap);
  }

  if (logger.lock != nullptr) logger.lock(false, logger.udata);
}

}  // namespace

template <int level>
void LogLine<level>::operator()(const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  Write(level, file_, line_, format, arguments);
  va_end(arguments);
}

template class LogLine<TESSALINE_LOG_TRACE>;
template class LogLine<TESSALINE_LOG_DEBUG>;
template class LogLine<TESSALINE_LOG_INFO>;
template class LogLine<TESSALINE_LOG_ERROR>;

}  // namespace VeltranoSDK

extern "C" {

void log_log(int level, const char* file, int line, const char* fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  VeltranoSDK::Write(level, file, line, fmt, arguments);
  va_end(arguments);
}

void log_set_level(int level) { logger.level.store(level, std::memory_order_relaxed); }

void log_set_quiet(bool enable) { logger.quiet.store(enable, std::memory_order_relaxed); }

void log_set_lock(log_LockFn fn, void* udata) {
  logger.lock = fn;
  logger.udata = udata;
}

int log_add_callback(log_LogFn fn, void* udata, int level) {
  if (fn == nullptr) return -1;
  for (Sink& sink : logger.callbacks) {
    if (sink.fn.load(std::memory_order_relaxed) != nullptr) continue;
    sink.udata = udata;
    sink.level = level;
    sink.fn.store(fn, std::memory_order_release);
    return 0;
  }
  return -1;
}

int log_add_fp(FILE* fp, int level) {
  return fp == nullptr ? -1 : log_add_callback(file_callback, fp, level);
}

const char* log_level_string(int level) {
  const auto index = static_cast<std::size_t>(level);
  return index < kLevelNames.size() ? kLevelNames[index] : "?";
}

}  // extern "C"
