#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tool {

// A picture with 1 (grey) or 3 (RGB) bytes per pixel, as the bytes of a PNG file.
std::vector<std::uint8_t> EncodePng(unsigned width, unsigned height, unsigned channels,
                                    std::span<const std::uint8_t> pixels);

// A grey picture as the bytes of a PGM file.
std::vector<std::uint8_t> EncodePgm(unsigned width, unsigned height,
                                    std::span<const std::uint8_t> pixels,
                                    const std::string& comment);

}  // namespace tool
