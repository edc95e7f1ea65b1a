#include "record/BagTopics.h"

#include <fmt/format.h>

#include <algorithm>

#include "Failure.h"
#include "record/SensorName.h"

namespace tool {
namespace {

// Ours are there once. More only come from a file that wants our memory or time.
constexpr std::size_t kMostTopics = 64;  // of a sensor
constexpr std::size_t kMostNamed = 20;   // in a message for people

}  // namespace

BagTopics::BagTopics(const Database& database) : path_(database.path()) {
  const auto refuse = [this](const char* what) {
    throw Failure(ExitCode::kFile, fmt::format("{}: it is damaged: {}", path_, what));
  };
  // A file that was made to be read for ever has more of them than anyone needs.
  Statement topics(database, "SELECT id, name FROM topics LIMIT 10000");
  while (topics.Next()) {
    const auto topic = ParseTopicName(topics.Text(1));
    if (!topic) continue;
    Numbers& numbers = topics_[topic->sensor];
    numbers[topics.Number(0)] = topic->topic;
    if (numbers.size() > kMostTopics) refuse("topics repeat");
    if (topics_.size() > kMostSensors + 1) refuse("more sensors than a file may have");
  }
  if (topics_.empty()) topics_[""];
}

std::vector<std::string> BagTopics::sensors() const {
  std::vector<std::string> names;
  for (const auto& [sensor, numbers] : topics_) {
    if (!sensor.empty()) names.push_back(sensor);
  }
  return names;
}

std::string BagTopics::SensorsText() const {
  const std::vector<std::string> names = sensors();
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), kMostNamed); ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  return names.size() > kMostNamed ? text + ", ..." : text;
}

std::string BagTopics::Choose(const std::string& sensor) const {
  if (topics_.contains(sensor)) return sensor;
  const std::vector<std::string> names = sensors();
  if (!sensor.empty()) {
    throw Failure(ExitCode::kUsage, fmt::format("{} has no sensor \"{}\"", path_, sensor),
                  names.empty() ? "it is of one sensor without a name"
                                : fmt::format("it has {}", SensorsText()));
  }
  if (names.size() > 1) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("{} is of several sensors: {}", path_, SensorsText()),
                  "say which: --sensor NAME (in Python, sensor=NAME)");
  }
  return names.empty() ? "" : names.front();
}

}  // namespace tool
