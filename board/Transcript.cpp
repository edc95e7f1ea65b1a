#include "Transcript.h"

#include <fmt/format.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <nlohmann/json.hpp>
#include <vector>

#include "Clock.h"

namespace board {
namespace {

struct Event {
  std::int64_t time_ns;
  pid_t thread;
  std::string_view device;  // device names live as long as the process
  std::string text;
};

// A program that runs for days must not exhaust the memory: events beyond this number are
// counted and dropped.
constexpr std::size_t kMaxEvents = 1'000'000;

// In the place of a device; every program sleeps.
constexpr std::string_view kSleeps = "sleep";

struct Log {
  std::mutex mutex;
  std::vector<Event> events;
  std::uint64_t dropped = 0;
  // What TakeTranscript has given out.
  std::size_t taken = 0;
  std::uint64_t dropped_taken = 0;
};

// Never destroyed: threads record until the process ends.
Log& TheLog() {
  static Log* log = new Log;
  return *log;
}

std::atomic<bool> recording{true};

pid_t ThreadId() {
  thread_local const pid_t id = static_cast<pid_t>(syscall(SYS_gettid));
  return id;
}

std::string_view Interned(std::string_view name) {
  static std::vector<std::string*>* names = new std::vector<std::string*>;
  for (const std::string* known : *names) {
    if (*known == name) return *known;
  }
  names->push_back(new std::string(name));
  return *names->back();
}

std::string DroppedText(std::uint64_t dropped) {
  return fmt::format("transcript full: {} further events\n", dropped);
}

void Append(const Event& event, tessaline_board_format format, std::string& out) {
  if (format == TESSALINE_BOARD_JSON_LINES) {
    const nlohmann::ordered_json line{{"time_us", static_cast<double>(event.time_ns) / 1000.0},
                                      {"thread", event.thread},
                                      {"device", event.device},
                                      {"event", event.text}};
    // A path may be any bytes.
    out += line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  } else {
    out += event.device;
    if (!event.device.empty()) out += ' ';
    out += event.text;
  }
  out += '\n';
}

}  // namespace

std::string ErrnoName(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : std::to_string(error);
}

bool Recording() { return recording.load(std::memory_order_relaxed); }

void Record(std::string_view device, std::string text) {
  if (!Recording()) return;
  const std::int64_t now = NowNs();
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  if (log.events.size() >= kMaxEvents) {
    ++log.dropped;
    return;
  }
  log.events.push_back({now, ThreadId(), Interned(device), std::move(text)});
}

std::string TranscriptText(tessaline_board_format format) {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  std::string out;
  for (const Event& event : log.events) Append(event, format, out);
  if (log.dropped > 0) out += DroppedText(log.dropped);
  return out;
}

TranscriptPart TakeTranscript(tessaline_board_format format) {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  TranscriptPart part;
  for (; log.taken < log.events.size(); ++log.taken) {
    const Event& event = log.events[log.taken];
    part.has_device = part.has_device || event.device != kSleeps;
    Append(event, format, part.text);
  }
  if (log.dropped > log.dropped_taken) part.text += DroppedText(log.dropped);
  log.dropped_taken = log.dropped;
  return part;
}

void SkipTranscript() {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  log.taken = log.events.size();
  log.dropped_taken = log.dropped;
}

void ClearTranscript() {
  Log& log = TheLog();
  const std::lock_guard lock(log.mutex);
  log.events.clear();
  log.dropped = 0;
  log.taken = 0;
  log.dropped_taken = 0;
}

void EnableTranscript(bool enable) { recording = enable; }

}  // namespace board
