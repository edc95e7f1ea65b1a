#pragma once

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tessaline/log.h"

namespace tessaline_test {

// The lines that the library logs from the given level up while this exists, as "LEVEL file: text".
class LoggedLines {
 public:
  explicit LoggedLines(int level = TESSALINE_LOG_INFO) : level_(level), sink_(SinkFor(level)) {
    log_set_quiet(true);
    const std::lock_guard lock(sink_.mutex);
    sink_.listeners.push_back(this);
  }
  ~LoggedLines() {
    const std::lock_guard lock(sink_.mutex);
    std::erase(sink_.listeners, this);
  }
  LoggedLines(const LoggedLines&) = delete;
  LoggedLines& operator=(const LoggedLines&) = delete;

  std::vector<std::string> lines() const {
    const std::lock_guard lock(sink_.mutex);
    return lines_;
  }

  // The lines since the last call.
  std::vector<std::string> Take() const {
    const std::lock_guard lock(sink_.mutex);
    return std::exchange(lines_, {});
  }

  std::size_t Count() const {
    const std::lock_guard lock(sink_.mutex);
    return lines_.size();
  }

 private:
  // Sinks of the logger cannot be removed, and threads may log until the end of the process, so
  // sinks are never destroyed.
  struct Sink {
    std::mutex mutex;
    std::vector<LoggedLines*> listeners;
  };

  template <int kLevel>
  static Sink& SinkFrom() {
    static Sink* const sink = [] {
      auto* const made = new Sink;
      log_add_callback(Receive, made, kLevel);
      return made;
    }();
    return *sink;
  }

  // A process that only expects errors does not get the lines below them.
  static Sink& SinkFor(int level) {
    return level < TESSALINE_LOG_ERROR ? SinkFrom<TESSALINE_LOG_TRACE>()
                                       : SinkFrom<TESSALINE_LOG_ERROR>();
  }

  static void Receive(log_Event* event) {
    auto* const sink = static_cast<Sink*>(event->udata);
    const std::lock_guard lock(sink->mutex);
    for (const LoggedLines* listener : sink->listeners) {
      if (event->level < listener->level_) continue;
      char text[512];
      va_list arguments;
      va_copy(arguments, event->ap);
      vsnprintf(text, sizeof text, event->fmt, arguments);
      va_end(arguments);
      listener->lines_.push_back(std::string(log_level_string(event->level)) + ' ' + event->file +
                                 ": " + text);
    }
  }

  const int level_;
  Sink& sink_;
  mutable std::vector<std::string> lines_;
};

// The same for errors alone, as "file: text".
class LoggedErrors {
 public:
  std::vector<std::string> lines() const {
    auto lines = logged_.lines();
    for (std::string& line : lines) line.erase(0, line.find(' ') + 1);
    return lines;
  }

 private:
  LoggedLines logged_{TESSALINE_LOG_ERROR};
};

}  // namespace tessaline_test
