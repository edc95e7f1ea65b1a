#include "record/SensorName.h"

#include <fmt/format.h>

#include <algorithm>

#include "Failure.h"

namespace tool {
namespace {

bool IsInWord(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

}  // namespace

bool IsSensorName(std::string_view name) {
  if (name.size() > kMostSensorName) return false;
  bool in_word = false;
  for (const char c : name) {
    if (!IsInWord(c) && !(c == '.' && in_word)) return false;
    in_word = c != '.';
  }
  return in_word;
}

void RequireSensorName(std::string_view name) {
  if (IsSensorName(name)) return;
  throw Failure(ExitCode::kUsage,
                fmt::format("\"{}\" is no name of a sensor", name.substr(0, kMostSensorName)),
                "it has words of letters, digits, - and _ with dots between, such as line3.left");
}

std::string TopicNameOf(std::string_view sensor, Topic topic) {
  std::string name = sensor.empty() ? "" : fmt::format("/{}", sensor);
  std::replace(name.begin(), name.end(), '.', '/');
  return name.append(EntryOf(topic).name);
}

std::optional<SensorTopic> ParseTopicName(std::string_view name) {
  for (const TopicEntry& entry : kTopics) {
    if (!name.ends_with(entry.name)) continue;
    const std::string_view path = name.substr(0, name.size() - entry.name.size());
    if (path.empty()) return SensorTopic{"", entry.topic};
    // A dot in a path would be a second topic of the same sensor.
    if (path.front() != '/' || path.size() > kMostSensorName + 1 || path.find('.') != path.npos) {
      return std::nullopt;
    }
    std::string sensor(path.substr(1));
    std::replace(sensor.begin(), sensor.end(), '/', '.');
    if (!IsSensorName(sensor)) return std::nullopt;
    return SensorTopic{std::move(sensor), entry.topic};
  }
  return std::nullopt;
}

}  // namespace tool
