// Calls the logger with any texts, levels and line numbers, and with formats that have any
// arguments. Compares its lines with lines built by hand. All 32 sinks are in use, alternately
// files and functions, at levels in no order.
#include <fuzzer/FuzzedDataProvider.h>
#include <limits.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "support/Require.h"
#include "tessaline/log.h"

namespace {

using tessaline_fuzz::Require;

constexpr std::array kSinkLevels{4, INT_MIN, 0, 5, 2, INT_MAX, -1, 3, 1, 6};
constexpr int kSinks = 32;

int SinkLevel(int sink) { return kSinkLevels[static_cast<unsigned>(sink) % kSinkLevels.size()]; }

// A stream in memory.
struct Memory {
  std::array<char, 1 << 14> text;
  FILE* stream = nullptr;

  void Open() {
    stream = fmemopen(text.data(), text.size(), "w");
    setvbuf(stream, nullptr, _IONBF, 0);
  }
  void Clear() { rewind(stream); }
  std::string_view Text() const { return {text.data(), static_cast<std::size_t>(ftell(stream))}; }
};

Memory error_stream;
std::array<Memory, kSinks> files;  // only every other one is used
std::array<std::string, kSinks> messages;
std::array<int, kSinks> calls;

struct Expected {
  int level = 0;
  int line = 0;
  std::string file;
  const char* format = nullptr;
} expected;

bool locked = false;
int lock_calls = 0;

void Lock(bool lock, void* udata) {
  Require(udata == &lock_calls, "the hook gets what it was set with");
  Require(lock != locked, "locked and unlocked in turn");
  locked = lock;
  ++lock_calls;
}

void Sink(log_Event* event) {
  const auto sink = static_cast<int*>(event->udata) - calls.data();
  ++calls[sink];
  Require(locked == (lock_calls > 0), "within the hook");
  Require(event->level == expected.level && event->line == expected.line, "level and line");
  Require(event->file == expected.file && event->fmt == expected.format, "file and format");
  Require(event->time != nullptr && event->time->tm_mon < 12, "the time is there");
  std::array<char, 1 << 13> text;
  vsnprintf(text.data(), text.size(), event->fmt, event->ap);
  messages[sink] = text.data();
}

std::string Padded(int level) {
  constexpr std::array kNames{"TRACE", "DEBUG", "INFO ", "WARN ", "ERROR", "FATAL"};
  return level >= 0 && level < 6 ? kNames[level] : "?    ";
}

// In the pattern, 0 stands for a digit; everything else stands for itself.
bool Matches(std::string_view text, std::string_view pattern) {
  if (text.size() != pattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (pattern[i] == '0' ? !digit : text[i] != pattern[i]) return false;
  }
  return true;
}

void CheckLine(std::string_view line, std::string_view time, const std::string& message) {
  const std::string rest = ' ' + Padded(expected.level) + ' ' + expected.file + ':' +
                           std::to_string(expected.line) + ": " + message + '\n';
  Require(Matches(line.substr(0, time.size()), time), "the line begins with the time");
  Require(line.substr(std::min(time.size(), line.size())) == rest, "the rest of the line");
}

// Returns text that contains no zero byte.
std::string ConsumeText(FuzzedDataProvider& input) {
  std::string text = input.ConsumeRandomLengthString(2000);
  text.resize(strlen(text.c_str()));
  return text;
}

// Calls the logger, and returns the expected message.
template <typename... Args>
std::string Log(const char* format, Args... args) {
  expected.format = format;
  std::array<char, 1 << 13> text;
  snprintf(text.data(), text.size(), format, args...);
  FILE* const real = stderr;
  stderr = error_stream.stream;
  log_log(expected.level, expected.file.c_str(), expected.line, format, args...);
  stderr = real;
  return text.data();
}

std::string LogSomething(FuzzedDataProvider& input) {
  const std::string text = ConsumeText(input);
  const auto wide = input.ConsumeIntegral<long long>();
  const auto narrow = input.ConsumeIntegral<int>();
  switch (input.ConsumeIntegralInRange(0, 6)) {
    case 0:
      return Log("%s", text.c_str());
    case 1:
      return Log("strip_index:%d, frameId: %lld, timeStamp: %lld \n", narrow, wide, ~wide);
    case 2:
      return Log("v4l2 VIDIOC_S_FMT failed: %s, width%d, height%d", text.c_str(), narrow, ~narrow);
    case 3:
      return Log("%-*.*s|%5u|%#llx", narrow % 300, narrow % 200, text.c_str(),
                 static_cast<unsigned>(narrow), wide);
    case 4:
      return Log("%g %c%% %zu %p", input.ConsumeFloatingPoint<double>(), 'a' + (narrow & 15),
                 static_cast<std::size_t>(wide), static_cast<void*>(nullptr));
    case 5: {
      // A line of the application itself: text without directives is a valid format.
      std::string format = text;
      std::erase(format, '%');
      return Log(format.c_str(), narrow);
    }
    default:
      return Log("%s%s", text.c_str(), text.c_str());
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  error_stream.Open();
  for (int sink = 0; sink < kSinks; ++sink) {
    if (sink % 2 == 0) files[sink].Open();
    const int result = sink % 2 == 0 ? log_add_fp(files[sink].stream, SinkLevel(sink))
                                     : log_add_callback(Sink, &calls[sink], SinkLevel(sink));
    Require(result == 0, "32 sinks are taken");
  }
  Require(log_add_callback(Sink, nullptr, 0) == -1, "and no more");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const auto level = [&input] {
    return input.ConsumeBool() ? input.ConsumeIntegralInRange(-1, 6) : input.ConsumeIntegral<int>();
  };
  const int threshold = level();
  const bool quiet = input.ConsumeBool();
  const bool hook = input.ConsumeBool();
  log_set_level(threshold);
  log_set_quiet(quiet);
  log_set_lock(hook ? Lock : nullptr, &lock_calls);
  lock_calls = 0;
  error_stream.Clear();
  calls.fill(0);
  for (int sink = 0; sink < kSinks; sink += 2) files[sink].Clear();

  expected = {level(), input.ConsumeIntegral<int>(), ConsumeText(input), nullptr};
  const std::string message = LogSomething(input);

  Require(lock_calls == (hook ? 2 : 0) && !locked, "the hook is called twice");
  if (!quiet && expected.level >= threshold) {
    CheckLine(error_stream.Text(), "00:00:00", message);
  } else {
    Require(error_stream.Text().empty(), "nothing on standard error");
  }
  for (int sink = 0; sink < kSinks; ++sink) {
    const bool reached = expected.level >= SinkLevel(sink);
    if (sink % 2 == 1) {
      Require(calls[sink] == reached, "a sink is called for its levels");
      Require(!reached || messages[sink] == message, "with the message");
    } else if (reached) {
      CheckLine(files[sink].Text(), "0000-00-00 00:00:00", message);
    } else {
      Require(files[sink].Text().empty(), "nothing in that file");
    }
  }
  return 0;
}
