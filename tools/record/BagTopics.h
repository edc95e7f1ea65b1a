#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "record/Database.h"
#include "record/Topics.h"

namespace tool {

// Which topics a file has, and of which sensors. Those that are not ours are left out.
class BagTopics {
 public:
  using Numbers = std::map<std::int64_t, Topic>;  // by the file's number

  static constexpr std::size_t kMostSensors = 256;

  // Throws Failure if the list is damaged or longer than any of ours.
  explicit BagTopics(const Database& database);

  // Of a file of several sensors, by name. None: the recording is of one sensor without a name.
  std::vector<std::string> sensors() const;
  bool Has(const std::string& sensor) const { return topics_.contains(sensor); }
  // `sensor` itself; if it is empty, the only one that there is, and empty if that has no name.
  // Throws Failure (ExitCode::kUsage) if it is not there, or there are several to choose from.
  std::string Choose(const std::string& sensor) const;
  const Numbers& Of(const std::string& sensor) const { return topics_.at(sensor); }

 private:
  std::string SensorsText() const;

  const std::string path_;
  std::map<std::string, Numbers> topics_;  // by sensor
};

}  // namespace tool
