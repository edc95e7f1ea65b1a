#pragma once

namespace board {

// What the FPGA does with the sensor's lines, and how it counts them.
struct FpgaLines {
  unsigned block_pixels = 1;  // pixels in a block of columns
  unsigned block_units = 1;   // units of STRIP_IMAGE_WIDTH per block
  bool crops = false;   // the FPGA skips ISP_WIDTH blocks on the left; otherwise the sensor crops
  bool halves = false;  // the FPGA skips every other column if ISP_CTRL says so
};

// What the frame engine must know about any image sensor at the moment of an exposure.
struct SensorState {
  bool streaming;       // out of standby
  unsigned full_width;  // pixels
  unsigned full_height;
  unsigned crop_x;  // first column and row read out, in full-sensor pixels
  unsigned crop_y;
  unsigned column_step;  // 1, or 2: every other column
  unsigned row_step;
  bool flip_horizontal;
  bool flip_vertical;
  bool hdr;                 // high dynamic range: bright pixels are compressed
  double gain;              // linear factor
  double exposure_unit_us;  // of the FPGA's exposure registers
  double line_time_us;
  unsigned frame_lines;  // lines of one frame period; limits the frame rate
  FpgaLines fpga;
};

class ImageSensorChip {
 public:
  virtual ~ImageSensorChip() = default;
  virtual SensorState State() const = 0;
  // The FPGA's reset line: registers return to their power-up values.
  virtual void Reset() = 0;
};

}  // namespace board
