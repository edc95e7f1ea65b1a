#include "Region.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

#include "Failure.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

// What a sensor accepts, and what it reads after a start.
struct Rules {
  std::string_view sensor;
  unsigned across;  // x and width come in these steps
  unsigned down;    // y
  unsigned height;
  unsigned least_width;
  Region start;  // no width: everything
};

constexpr std::array kRules{
    Rules{"IMX273", 1, 1, 1, 1, {}},
    Rules{"IMX252", 1, 1, 1, 1, {8, 4, 2048, 1536}},
    Rules{"GMAX2509", 28, 1, 1, 560, {0, 0, 4200, 1024}},
    Rules{"GSPRINT6502BSI", 32, 1, 2, 32, {}},
    Rules{"e2v Flash 4K", 64, 8, 8, 64, {}},
};

const Rules& RulesOf(const Model& model) {
  return *std::find_if(kRules.begin(), kRules.end(), [&](const Rules& rules) {
    return rules.sensor == model.family().sensor.name;
  });
}

}  // namespace

std::string Region::AsCall() const {
  return fmt::format("SetROI1({}, {}, {}, {})", x, y, width, height);
}

bool Region::Set() const { return SetROI1(x, y, width, height) == 0; }

Region WholeSensor(const Model& model) {
  return {0, 0, model.family().sensor.width, model.product().Height()};
}

Region StartRegion(const Model& model) {
  const Region& start = RulesOf(model).start;
  return start.width == 0 ? WholeSensor(model) : start;
}

Region UsualRegion(const Model& model) {
  const Region start = StartRegion(model);
  const Region whole = WholeSensor(model);
  return start.height >= whole.height * 3 / 4 ? start : whole;
}

void Require(const Region& region, const Model& model) {
  const Rules& rules = RulesOf(model);
  const Region whole = WholeSensor(model);
  const auto fits = [](unsigned from, unsigned size, unsigned most) {
    return size >= 1 && size <= most && from <= most - size;
  };
  const bool in_steps = region.x % rules.across == 0 && region.width % rules.across == 0 &&
                        region.y % rules.down == 0 && region.height % rules.height == 0;
  if (fits(region.x, region.width, whole.width) && fits(region.y, region.height, whole.height) &&
      in_steps && region.width >= rules.least_width) {
    return;
  }
  std::string limits =
      fmt::format("a region lies within {} x {} pixels", whole.width, whole.height);
  const auto add = [&limits](const char* what, unsigned step) {
    if (step > 1) limits += fmt::format(", {} in steps of {}", what, step);
  };
  add("x and width", rules.across);
  add("y", rules.down);
  add("height", rules.height);
  if (rules.least_width > 1) limits += fmt::format(", width from {}", rules.least_width);
  throw Failure(
      ExitCode::kUsage,
      fmt::format("the {} of a {} has no region of {} x {} at column {}, row {}", rules.sensor,
                  model.code(), region.width, region.height, region.x, region.y),
      limits);
}

}  // namespace tool
