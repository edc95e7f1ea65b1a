#pragma once

namespace board {

// What the frame generator has to know of the image sensor at the moment of an
// exposure, whatever chip it is.
struct SensorState {
  bool streaming;            // out of standby
  unsigned full_width;
  unsigned full_height;
  unsigned crop_x;           // first column and row read out, in full-sensor pixels
  unsigned crop_y;
  unsigned subsampling;      // 1, or 2: every other pixel in both directions
  bool flip_horizontal;
  bool flip_vertical;
  double gain;               // linear factor
  double line_time_us;       // unit of the FPGA's exposure registers
  unsigned frame_lines;      // lines of one frame period: bounds the frame rate
};

class ImageSensorChip {
 public:
  virtual ~ImageSensorChip() = default;
  virtual SensorState State() const = 0;
  // The FPGA's reset line: registers return to their power-up values.
  virtual void Reset() = 0;
};

}  // namespace board
