#pragma once

#include <cstddef>
#include <cstdint>

namespace VeltranoSDK {

// In front of every strip's points, little-endian.
struct StripHeader {
  std::uint64_t frame_id;
  std::uint64_t time_stamp;
  std::uint64_t encoder_stamp;
  std::uint64_t point_count;
};

// What a walk over packed strips found whole.
struct StripWalk {
  std::uint32_t strips = 0;
  std::uint32_t bytes = 0;          // headers and points
  std::uint64_t last_frame_id = 0;  // of the last of them
  bool complete = true;             // false: the next one does not fit into the buffer
};

// Told of every whole strip, counted from 1.
using StripVisitor = void (*)(unsigned int index, const StripHeader& strip);

// Walks `count` strips packed into the first `size` bytes. Neither the count nor
// any point count is believed beyond the size.
StripWalk WalkStrips(const std::byte* buffer, std::size_t size, std::uint32_t count,
                     std::uint32_t bytes_per_point, StripVisitor visit = nullptr);

}  // namespace VeltranoSDK
