#include "Gain.h"

#include <fmt/core.h>

#include "Failure.h"
#include "SensorLimits.h"

namespace tool {
void RequireGain(unsigned gain, const Model& model) {
  const SensorLimits& limits = LimitsOf(model);
  if (gain >= limits.least_gain && gain <= limits.most_gain) return;
  throw Failure(
      ExitCode::kUsage,
      fmt::format("the {} of a {} has no gain of {}", limits.sensor, model.code(), gain),
      fmt::format("its gain is {} to {}{}", limits.least_gain, limits.most_gain, limits.gain_unit));
}

}  // namespace tool
