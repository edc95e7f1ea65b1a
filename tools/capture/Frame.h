#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tool {

// One point of the laser line. Column and row are those of the full sensor.
struct Point {
  unsigned column;
  float row;
  std::uint8_t peak;   // grey value; 0 if the product does not send it
  std::uint8_t width;  // of the line, pixels; 0 if the product does not send it
  float x;             // mm, if there is a calibration
  float z;
  float x_sigma;  // mm, 1 sigma; NaN if not known
  float z_sigma;
};

// What was captured at one trigger: an image, or the points of the laser line.
struct Frame {
  std::uint64_t id;
  std::uint64_t time_stamp;  // ticks of 20 ns
  std::uint64_t encoder_stamp;
  std::span<const std::uint8_t> raw;  // as the library delivered it, header included

  std::vector<Point> points;        // of a strip
  std::uint64_t outside_field = 0;  // of them, where the calibration was not seen

  unsigned width = 0;  // of an image
  unsigned height = 0;
  std::span<const std::uint8_t> pixels;
};

}  // namespace tool
