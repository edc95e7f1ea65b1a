#include "SensorLimits.h"

#include <algorithm>
#include <array>

namespace tool {
namespace {

constexpr std::string_view kDecibels = " decibels";
constexpr std::string_view kLevels = ", in levels";

constexpr std::array kLimits{
    SensorLimits{"IMX273", 1, 1, 1, 1, {}, 0, 48, kDecibels},
    SensorLimits{"IMX252", 1, 1, 1, 1, {8, 4, 2048, 1536}, 0, 48, kDecibels},
    SensorLimits{"GMAX2509", 28, 1, 1, 560, {0, 0, 4200, 1024}, 1, 5, kLevels},
    SensorLimits{"GSPRINT6502BSI", 32, 1, 2, 32, {}, 1, 4, kLevels},
    SensorLimits{"e2v Flash 4K", 64, 8, 8, 64, {}, 0, 4, kLevels},
};

}  // namespace

const SensorLimits& LimitsOf(const Model& model) {
  return *std::find_if(kLimits.begin(), kLimits.end(), [&](const SensorLimits& limits) {
    return limits.sensor == model.family().sensor.name;
  });
}

}  // namespace tool
