#include "Region.h"

#include <fmt/core.h>

#include "Failure.h"
#include "SensorLimits.h"

namespace tool {

std::string Region::AsCall() const {
  return fmt::format("SetROI1({}, {}, {}, {})", x, y, width, height);
}

std::string Region::AsText() const {
  return fmt::format("{} x {} pixels at column {}, row {}", width, height, x, y);
}

Region WholeSensor(const Model& model) {
  return {0, 0, model.family().sensor.width, model.product().Height()};
}

Region StartRegion(const Model& model) {
  const Region& start = LimitsOf(model).start;
  return start.width == 0 ? WholeSensor(model) : start;
}

Region UsualRegion(const Model& model) {
  const Region start = StartRegion(model);
  const Region whole = WholeSensor(model);
  return start.height >= whole.height * 3 / 4 ? start : whole;
}

void Require(const Region& region, const Model& model) {
  const SensorLimits& limits = LimitsOf(model);
  const Region whole = WholeSensor(model);
  const auto fits = [](unsigned from, unsigned size, unsigned most) {
    return size >= 1 && size <= most && from <= most - size;
  };
  const bool in_steps = region.x % limits.across == 0 && region.width % limits.across == 0 &&
                        region.y % limits.down == 0 && region.height % limits.height == 0;
  if (fits(region.x, region.width, whole.width) && fits(region.y, region.height, whole.height) &&
      in_steps && region.width >= limits.least_width) {
    return;
  }
  std::string text = fmt::format("a region lies within {} x {} pixels", whole.width, whole.height);
  const auto add = [&text](const char* what, unsigned step) {
    if (step > 1) text += fmt::format(", {} in steps of {}", what, step);
  };
  add("x and width", limits.across);
  add("y", limits.down);
  add("height", limits.height);
  if (limits.least_width > 1) text += fmt::format(", width from {}", limits.least_width);
  throw Failure(
      ExitCode::kUsage,
      fmt::format("the {} of a {} has no region of {} x {} at column {}, row {}", limits.sensor,
                  model.code(), region.width, region.height, region.x, region.y),
      text);
}

}  // namespace tool
