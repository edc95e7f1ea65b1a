#include "Gain.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>

#include "Failure.h"

namespace tool {
namespace {

struct Range {
  std::string_view sensor;
  unsigned low;
  unsigned high;
  std::string_view unit;
};

constexpr std::array kRanges{
    Range{"IMX273", 0, 48, " decibels"},        Range{"IMX252", 0, 48, " decibels"},
    Range{"GMAX2509", 1, 5, ", in levels"},     Range{"GSPRINT6502BSI", 1, 4, ", in levels"},
    Range{"e2v Flash 4K", 0, 4, ", in levels"},
};

}  // namespace

void RequireGain(unsigned gain, const Model& model) {
  const Range& range = *std::find_if(kRanges.begin(), kRanges.end(), [&](const Range& one) {
    return one.sensor == model.family().sensor.name;
  });
  if (gain >= range.low && gain <= range.high) return;
  throw Failure(ExitCode::kUsage,
                fmt::format("the {} of a {} has no gain of {}", range.sensor, model.code(), gain),
                fmt::format("its gain is {} to {}{}", range.low, range.high, range.unit));
}

}  // namespace tool
