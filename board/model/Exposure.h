#pragma once

#include <cstdint>

#include "chips/ImageSensorChip.h"

namespace board {

// One exposure of the sensor. It determines the whole content of a frame.
struct Exposure {
  std::uint64_t frame_id;
  std::uint64_t time_stamp;     // FPGA timer ticks
  std::uint64_t encoder_stamp;  // encoder counts
  double belt_y;                // mm under the laser line
  double light;                 // grey value of the line on a perfectly white surface; 0: laser off
  SensorState sensor;
  unsigned width;  // pixels read out, as the FPGA counts them
  unsigned height;
};

// The laser line in one column of the frame. Across the line, the light is a Gaussian with this
// standard deviation in pixels.
inline constexpr double kLineSigma = 1.8;

struct LinePoint {
  double row;   // in the frame, sub-pixel; may be outside
  double peak;  // grey value, at most 255; 0: no light
};

LinePoint LineAt(const Exposure& exposure, unsigned column);

}  // namespace board
