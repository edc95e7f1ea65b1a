#pragma once

#include <string_view>

#include "Models.h"
#include "Region.h"

namespace tool {

// What an image sensor accepts, and what it reads after a start.
struct SensorLimits {
  std::string_view sensor;
  unsigned across;  // x and width come in these steps
  unsigned down;    // y
  unsigned height;
  unsigned least_width;
  Region start;  // no width: everything
  unsigned least_gain;
  unsigned most_gain;
  std::string_view gain_unit;
};

const SensorLimits& LimitsOf(const Model& model);

}  // namespace tool
