#pragma once

#include <tessaline/frames.h>

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

// One point of the laser line; the row is within the region of interest.
struct Point {
  unsigned column;
  std::uint8_t peak;  // grey value; 255 if the product does not send it
  double row;
};

struct Profile {
  std::uint64_t frame_id;
  std::uint64_t encoder_stamp;
  std::vector<Point> points;
};

template <typename Record>
Record Take(const std::uint8_t*& at) {
  Record record;
  std::memcpy(&record, at, sizeof record);
  at += sizeof record;
  return record;
}

// Converts the strips that a handler received to profiles. docs/strip-format.md describes the
// layout.
inline std::vector<Profile> ReadStrips(unsigned strips, unsigned bytes, const void* data,
                                       std::size_t point_bytes) {
  constexpr double kFullSteps = TESSALINE_FULL_ROW_STEPS;
  constexpr double kShortSteps = TESSALINE_SHORT_ROW_STEPS;
  std::vector<Profile> profiles;
  const auto* at = static_cast<const std::uint8_t*>(data);
  const auto* const end = at + bytes;
  for (unsigned i = 0; i < strips; ++i) {
    if (static_cast<std::size_t>(end - at) < sizeof(tessaline_strip_header)) return profiles;
    const auto strip = Take<tessaline_strip_header>(at);
    if (strip.point_count > static_cast<std::size_t>(end - at) / point_bytes) return profiles;
    Profile profile{strip.frame_id, strip.encoder_stamp, {}};
    profile.points.reserve(strip.point_count);
    for (unsigned n = 0; n < strip.point_count; ++n) {
      if (point_bytes == sizeof(tessaline_row_point)) {
        const unsigned row = Take<tessaline_row_point>(at).row;
        if (row != TESSALINE_NO_LINE) profile.points.push_back({n, 255, row / kShortSteps});
      } else if (point_bytes == sizeof(tessaline_short_point)) {
        const auto point = Take<tessaline_short_point>(at);
        profile.points.push_back({point.column, 255, point.row / kShortSteps});
      } else {
        const auto point = Take<tessaline_full_point>(at);
        profile.points.push_back({point.column, point.peak, point.row / kFullSteps});
      }
    }
    profiles.push_back(std::move(profile));
  }
  return profiles;
}
