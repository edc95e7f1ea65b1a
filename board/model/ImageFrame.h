#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/Exposure.h"

namespace board {

// Writes an image as the FPGA does. Its 16-byte blocks go to four planes in turn. The planes are a
// quarter of the full frame apart, and a 32-byte header is behind the last plane.
//
// full_pixels: width x height of the device's format without its extra line. Bytes that do not fit
// in the buffer are not written. Returns the number of bytes used.
std::size_t WriteImage(const Exposure& exposure, std::size_t full_pixels,
                       std::span<std::uint8_t> buffer);

// Restores the camera's order of such an image: row after row, then the header.
void TakeImage(const Exposure& exposure, std::size_t full_pixels,
               std::span<const std::uint8_t> buffer, std::vector<std::uint8_t>& image);

// The inverse: `image` has width x height pixels, row after row, and the header.
std::size_t PutImage(std::span<const std::byte> image, std::size_t full_pixels,
                     std::span<std::uint8_t> buffer);

}  // namespace board
