#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/Exposure.h"

namespace board {

// Writes an image as the FPGA does: 16-byte blocks dealt out to four planes, a quarter of the
// full frame apart, and a 32-byte header behind the last plane.
//
// full_pixels: width x height of the device's format without its extra line. What does not fit
// into the buffer is not written. Returns the bytes used.
std::size_t WriteImage(const Exposure& exposure, std::size_t full_pixels,
                       std::span<std::uint8_t> buffer);

// Puts such an image back into the order the camera saw: row after row, then the header.
void TakeImage(const Exposure& exposure, std::size_t full_pixels,
               std::span<const std::uint8_t> buffer, std::vector<std::uint8_t>& image);

}  // namespace board
