#include "capture/LightMeter.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::uint8_t kSaturated = 255;
constexpr std::uint8_t kDark = 40;  // a line is brighter, noise is not
constexpr double kMostlySaturated = 0.9;

}  // namespace

void LightMeter::Look(const Frame& frame) {
  ++frames_;
  if (images_) {
    if (!frame.pixels.empty()) brightest_ = std::max(brightest_, std::ranges::max(frame.pixels));
    return;
  }
  points_ += frame.points.size();
  if (rows_only_) return;
  saturated_ +=
      static_cast<std::uint64_t>(std::ranges::count(frame.points, kSaturated, &Point::peak));
}

std::string LightMeter::Warning() const {
  if (frames_ == 0) return {};
  if (images_ ? brightest_ < kDark : points_ == 0) {
    return "there is no laser line: is the laser on, and the exposure long enough?";
  }
  if (!images_ &&
      static_cast<double>(saturated_) > kMostlySaturated * static_cast<double>(points_)) {
    return "the laser line is saturated, which makes heights worse: shorten --exposure";
  }
  return {};
}

}  // namespace tool
