#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "chips/ImageSensorChip.h"
#include "model/LaserLine.h"
#include "model/View.h"

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
  std::shared_ptr<const View> view;  // never null
};

// The laser line in one column of the frame. Across the line, the light is a Gaussian with this
// standard deviation in pixels.
inline constexpr double kLineSigma = 1.8;

struct LinePoint {
  double row;    // in the frame, sub-pixel; may be outside
  double peak;   // grey value, at most 255; 0: no light
  double light;  // the same, but without the limit
};

// The laser line of one exposure, which must outlive this.
class ExposedLine {
 public:
  explicit ExposedLine(const Exposure& exposure);

  LinePoint At(unsigned column) const;

 private:
  LinePoint Ideal(double column) const;
  LinePoint Real(double column) const;
  double LightAt(double x) const;

  const Exposure& exposure_;
  std::optional<LaserLine> real_;
};

}  // namespace board
