#include "serve/LogLines.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "HostClock.h"
#include "serve/Feed.h"

namespace tool::serve {
namespace {

constexpr std::array<std::string_view, 6> kLevels{"TRACE", "DEBUG", "INFO",
                                                  "WARN",  "ERROR", "FATAL"};

}  // namespace

LogLines& LogLines::Instance() {
  static LogLines* lines = new LogLines;
  return *lines;
}

void LogLines::Listen() { log_add_callback(&Sink, nullptr, TESSALINE_LOG_INFO); }

void LogLines::Sink(log_Event* event) {
  Feed::OnLogLine(event);
  std::array<char, 1024> text{};
  vsnprintf(text.data(), text.size(), event->fmt, event->ap);
  Instance().Add({HostSeconds(), event->level, event->file, event->line, text.data()});
}

void LogLines::Note(const std::string& text) {
  Add({HostSeconds(), TESSALINE_LOG_INFO, "tessaline serve", 0, text});
}

void LogLines::Add(Line line) {
  const std::lock_guard lock(mutex_);
  errors_ += line.level >= TESSALINE_LOG_ERROR ? 1 : 0;
  warnings_ += line.level == TESSALINE_LOG_WARN ? 1 : 0;
  lines_.push_back(std::move(line));
  if (lines_.size() <= kMost) return;
  lines_.pop_front();
  ++first_;
}

Json LogLines::Since(std::uint64_t& from, std::size_t most) const {
  const std::lock_guard lock(mutex_);
  const std::uint64_t end = first_ + lines_.size();
  from = std::max({from, first_, end - std::min<std::uint64_t>(end, most)});
  Json json = Json::array();
  for (; from < end; ++from) {
    const Line& line = lines_[from - first_];
    const auto level = static_cast<std::size_t>(std::clamp(line.level, 0, 5));
    json.push_back({{"time", line.time},
                    {"level", kLevels[level]},
                    {"file", line.file},
                    {"line", line.number},
                    {"text", line.text}});
  }
  return json;
}

std::uint64_t LogLines::End() const {
  const std::lock_guard lock(mutex_);
  return first_ + lines_.size();
}

std::uint64_t LogLines::Errors() const {
  const std::lock_guard lock(mutex_);
  return errors_;
}

std::uint64_t LogLines::Warnings() const {
  const std::lock_guard lock(mutex_);
  return warnings_;
}

}  // namespace tool::serve
