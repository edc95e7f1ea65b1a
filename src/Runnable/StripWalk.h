#pragma once

#include <string.h>

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

struct VisitNoStrip {
  void operator()(unsigned int /*index*/, const StripHeader& /*strip*/) const {}
};

// Walks `count` strips packed into the first `size` bytes. Neither the count nor
// any point count is believed beyond the size. The visitor is told of every whole
// strip, counted from 1.
template <typename Visitor = VisitNoStrip>
StripWalk WalkStrips(const std::byte* buffer, std::size_t size, std::uint32_t count,
                     std::uint32_t bytes_per_point, Visitor visit = {}) {
  StripWalk walk;
  std::size_t offset = 0;
  while (walk.strips < count) {
    StripHeader strip;
    std::uint64_t points_bytes;
    walk.complete = false;
    if (size - offset < sizeof strip) break;
    // Points of 2 bytes put the next header on any even address.
    memcpy(&strip, buffer + offset, sizeof strip);
    if (__builtin_mul_overflow(strip.point_count, std::uint64_t{bytes_per_point}, &points_bytes) ||
        points_bytes > size - offset - sizeof strip) {
      break;
    }
    walk.complete = true;
    offset += sizeof strip + points_bytes;
    ++walk.strips;
    walk.last_frame_id = strip.frame_id;
    visit(walk.strips, strip);
  }
  walk.bytes = static_cast<std::uint32_t>(offset);
  return walk;
}

}  // namespace VeltranoSDK
