#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "capture/Frame.h"

namespace tool {

// Takes apart what the handlers get; docs/strip-format.md and docs/image-format.md describe the
// layouts. The frames point into the bytes.

// False if the strips do not fit into the bytes; `use` gets those that do.
bool ReadStrips(unsigned strips, std::span<const std::uint8_t> bytes, std::size_t point_bytes,
                const std::function<void(const Frame&)>& use);

// `bytes` are the pixels and the 32 bytes behind.
Frame ReadImage(unsigned width, unsigned height, std::span<const std::uint8_t> bytes);

inline constexpr std::size_t kFrameHeaderBytes = 32;

}  // namespace tool
