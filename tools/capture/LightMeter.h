#pragma once

#include <cstdint>
#include <string>

#include "capture/Frame.h"

namespace tool {

// Notices frames that show nothing: too dark, or too bright.
class LightMeter {
 public:
  // `rows_only`: the points have no grey value.
  LightMeter(bool images, bool rows_only) : images_(images), rows_only_(rows_only) {}

  void Look(const Frame& frame);
  // For the user; empty if there is nothing to say.
  std::string Warning() const;

 private:
  void LookAtImage(const Frame& frame);

  const bool images_;
  const bool rows_only_;
  std::uint64_t frames_ = 0;
  std::uint64_t points_ = 0;     // of the laser line, or columns of images that have light
  std::uint64_t saturated_ = 0;  // of those
};

}  // namespace tool
