#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "record/Topics.h"

namespace tool {

// Names of sensors of which several are in one file: words of letters, digits, "-" and "_" with
// dots between, such as "line3.left". Topics of such a sensor begin with its name as a path:
// "/line3/left/tessaline/strips".
inline constexpr std::size_t kMostSensorName = 128;

bool IsSensorName(std::string_view name);

// Throws Failure (ExitCode::kUsage) unless it is one.
void RequireSensorName(std::string_view name);

// The topic's whole name. `sensor`: empty in a recording of one sensor.
std::string TopicNameOf(std::string_view sensor, Topic topic);

struct SensorTopic {
  std::string sensor;  // empty: of a recording of one sensor
  Topic topic;
};

// The other way. None: this is no topic of ours.
std::optional<SensorTopic> ParseTopicName(std::string_view name);

}  // namespace tool
