#pragma once

#include <stddef.h>
#include <string.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "tessaline/frames.h"

namespace VeltranoSDK {

using StripHeader = tessaline_strip_header;

// The complete strips that a walk found.
struct StripWalk {
  std::uint32_t strips = 0;
  std::uint32_t bytes = 0;          // headers and points
  std::uint64_t last_frame_id = 0;  // of the last of them
  bool complete = true;             // false: the next one does not fit into the buffer
};

struct VisitNoStrip {
  void operator()(unsigned int /*index*/, const StripHeader& /*strip*/) const {}
};

namespace strip_walk {

// Points of 2 bytes put the next header on any even address.
template <typename Value>
Value ReadAt(const std::byte* at) {
  Value value;
  memcpy(&value, at, sizeof value);
  return value;
}

// `PointBytes` is known to the compiler where possible. The step from one header to the next is
// then a load and a shift, and the checks run in parallel.
template <typename PointBytes, typename Visitor>
StripWalk Walk(const std::byte* buffer, std::size_t size, std::uint32_t count,
               PointBytes bytes_per_point, Visitor& visit) {
  const std::uint64_t point_bytes = bytes_per_point;
  StripWalk walk;
  std::size_t offset = 0;
  std::size_t last = 0;
  while (walk.strips < count) {
    walk.complete = false;
    if (size - offset < sizeof(StripHeader)) break;
    const std::size_t left = size - offset - sizeof(StripHeader);
    const auto points = ReadAt<std::uint64_t>(buffer + offset + offsetof(StripHeader, point_count));
    if (point_bytes != 0 && points > left / point_bytes) break;
    walk.complete = true;
    last = offset;
    offset += sizeof(StripHeader) + points * point_bytes;
    ++walk.strips;
    visit(walk.strips, ReadAt<StripHeader>(buffer + last));
  }
  if (walk.strips > 0) {
    walk.last_frame_id = ReadAt<std::uint64_t>(buffer + last + offsetof(StripHeader, frame_id));
  }
  walk.bytes = static_cast<std::uint32_t>(offset);
  return walk;
}

template <std::uint32_t kBytes>
using Known = std::integral_constant<std::uint32_t, kBytes>;

}  // namespace strip_walk

// Walks `count` strips packed into the first `size` bytes. Neither the count nor a point count is
// trusted beyond the size. Calls the visitor for every complete strip, counted from 1.
template <typename Visitor = VisitNoStrip>
StripWalk WalkStrips(const std::byte* buffer, std::size_t size, std::uint32_t count,
                     std::uint32_t bytes_per_point, Visitor visit = {}) {
  using namespace strip_walk;
  switch (bytes_per_point) {
    case 2:
      return Walk(buffer, size, count, Known<2>(), visit);
    case 4:
      return Walk(buffer, size, count, Known<4>(), visit);
    case 8:
      return Walk(buffer, size, count, Known<8>(), visit);
    default:
      return Walk(buffer, size, count, bytes_per_point, visit);
  }
}

}  // namespace VeltranoSDK
