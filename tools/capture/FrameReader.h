#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "capture/Frame.h"
#include "tessaline/frames.h"

namespace tool {

// Takes apart what the handlers get, as tessaline/frames.h describes it. The frames point into the
// bytes.

// False if the strips do not fit into the bytes; `use` gets those that do.
bool ReadStrips(unsigned strips, std::span<const std::uint8_t> bytes, std::size_t point_bytes,
                const std::function<void(const Frame&)>& use);

// `bytes` are the pixels and the header behind.
Frame ReadImage(unsigned width, unsigned height, std::span<const std::uint8_t> bytes);

inline constexpr std::size_t kFrameHeaderBytes = sizeof(tessaline_image_header);

}  // namespace tool
