#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Json.h"
#include "Recipe.h"
#include "Region.h"
#include "serve/PictureMaker.h"

namespace tool::serve {

// What the sensor does and how it is, at one moment.
struct SensorState {
  Recipe settings;  // in force
  Region region;
  bool images = false;  // instead of strips
  bool acquiring = false;
  bool laser = false;
  double laser_seconds = 0;
  std::string unit;                    // of the profiles
  std::string calibration;             // where the millimetres come from; empty: nowhere
  std::optional<std::string> failure;  // why it does not answer

  // From the library and the kernel, a moment ago.
  std::uint64_t missing_ids = 0;
  std::uint64_t malformed = 0;
  std::uint64_t fpga_lost = 0;
  std::uint64_t triggers_lost = 0;
  std::optional<double> processor_temperature;
  double profiles_per_second = 0;
  double images_per_second = 0;
  double megabytes_per_second = 0;
};

// A recipe's settings as JSON, all of them; null where nothing was ever set.
Json SettingsJson(const Recipe& recipe);

}  // namespace tool::serve
