#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Surface.h"

namespace board {

// A calibration target in the laser plane. It has the same cross-section everywhere along the
// movement.
class Target {
 public:
  // From text such as "sawtooth,x=1,z=5,tilt=2". Returns nothing and says what is wrong if there is
  // no such target.
  static std::optional<Target> Parse(std::string_view text, std::string& wrong);

  const Surface& CrossSection() const { return surface_; }
  // Other for every target and place: speckle depends on the surface that the laser meets.
  std::uint64_t Key() const { return key_; }

  static constexpr double kReflectance = 0.6;

 private:
  Target(Surface surface, std::uint64_t key) : surface_(std::move(surface)), key_(key) {}

  Surface surface_;
  std::uint64_t key_;
};

}  // namespace board
