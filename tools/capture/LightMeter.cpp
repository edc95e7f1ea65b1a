#include "capture/LightMeter.h"

#include <algorithm>

namespace tool {
namespace {

constexpr std::uint8_t kSaturated = 255;
constexpr std::uint8_t kDarkNoise = 7;  // of a pixel
constexpr std::uint8_t kDark = 40;      // a line is brighter, noise is not
constexpr double kMostlySaturated = 0.9;

}  // namespace

void LightMeter::Look(const Frame& frame) {
  ++frames_;
  if (images_) return LookAtImage(frame);
  points_ += frame.points.size();
  if (rows_only_) return;
  saturated_ +=
      static_cast<std::uint64_t>(std::ranges::count(frame.points, kSaturated, &Point::peak));
}

void LightMeter::LookAtImage(const Frame& frame) {
  std::vector<std::uint8_t> brightest(frame.width);
  for (std::size_t row = 0; row < frame.pixels.size(); row += frame.width) {
    for (unsigned column = 0; column < frame.width; ++column) {
      brightest[column] = std::max(brightest[column], frame.pixels[row + column]);
    }
  }
  points_ += static_cast<std::uint64_t>(
      std::ranges::count_if(brightest, [](std::uint8_t grey) { return grey >= kDark; }));
  saturated_ += static_cast<std::uint64_t>(std::ranges::count_if(
      brightest, [](std::uint8_t grey) { return grey >= kSaturated - kDarkNoise; }));
}

std::string LightMeter::Warning() const {
  if (frames_ == 0) return {};
  if (points_ == 0) {
    return "there is no laser line: is the laser on, and the exposure long enough?";
  }
  if (static_cast<double>(saturated_) > kMostlySaturated * static_cast<double>(points_)) {
    return images_ ? "the images are saturated: shorten --exposure"
                   : "the laser line is saturated, which makes heights worse: shorten --exposure";
  }
  return {};
}

}  // namespace tool
