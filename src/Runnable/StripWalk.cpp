#include "Runnable/StripWalk.h"

#include <string.h>

namespace VeltranoSDK {

StripWalk WalkStrips(const std::byte* buffer, std::size_t size, std::uint32_t count,
                     std::uint32_t bytes_per_point, StripVisitor visit) {
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
    if (visit != nullptr) visit(walk.strips, strip);
  }
  walk.bytes = static_cast<std::uint32_t>(offset);
  return walk;
}

}  // namespace VeltranoSDK
