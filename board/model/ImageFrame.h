#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/Exposure.h"

namespace board {

// Writes images the way the FPGA does: 16-byte blocks dealt out to four planes, a
// quarter of the full frame apart, and a 32-byte header behind the last plane.
class ImageFrame {
 public:
  ImageFrame();

  // full_pixels: width x height of the device's format without its extra line. What
  // does not fit into the buffer is not written. Returns the bytes used.
  std::size_t Write(const Exposure& exposure, std::size_t full_pixels,
                    std::span<std::uint8_t> buffer) const;

 private:
  std::vector<std::uint8_t> dark_;  // a dark frame's noise, to copy from
};

}  // namespace board
