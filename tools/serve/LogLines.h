#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "Json.h"
#include "tessaline/log.h"

namespace tool::serve {

// The latest lines of the library's log. There is one, because the log knows no owner.
class LogLines {
 public:
  static constexpr std::size_t kMost = 500;  // that are kept

  static LogLines& Instance();
  // Takes part in the log from now on.
  void Listen();
  // A line of our own.
  void Note(const std::string& text);

  // Lines from number `from` on, as JSON; `from` becomes the number of the next.
  Json Since(std::uint64_t& from, std::size_t most) const;
  std::uint64_t End() const;  // the number of the next line
  std::uint64_t Errors() const;
  std::uint64_t Warnings() const;

 private:
  struct Line {
    double time;
    int level;
    std::string file;
    int number;
    std::string text;
  };
  static void Sink(log_Event* event);
  void Add(Line line);

  mutable std::mutex mutex_;
  std::deque<Line> lines_;
  std::uint64_t first_ = 0;
  std::uint64_t errors_ = 0;
  std::uint64_t warnings_ = 0;
};

}  // namespace tool::serve
