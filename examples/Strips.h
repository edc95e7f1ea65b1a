#pragma once

#include <cstdint>
#include <cstring>
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

template <typename Number>
Number Take(const std::uint8_t*& at) {
  Number number;
  std::memcpy(&number, at, sizeof number);
  at += sizeof number;
  return number;
}

// Converts the strips that a handler received to profiles. docs/strip-format.md describes the
// layout.
inline std::vector<Profile> ReadStrips(unsigned strips, unsigned bytes, const void* data,
                                       std::size_t point_bytes) {
  constexpr std::size_t kHeaderBytes = 32;
  constexpr std::uint16_t kNoLine = 0xFFFF;
  std::vector<Profile> profiles;
  const auto* at = static_cast<const std::uint8_t*>(data);
  const auto* const end = at + bytes;
  for (unsigned i = 0; i < strips; ++i) {
    if (static_cast<std::size_t>(end - at) < kHeaderBytes) return profiles;
    Profile profile{};
    profile.frame_id = Take<std::uint64_t>(at);
    Take<std::uint64_t>(at);  // the time stamp
    profile.encoder_stamp = Take<std::uint64_t>(at);
    const auto points = Take<std::uint64_t>(at);
    if (points > static_cast<std::size_t>(end - at) / point_bytes) return profiles;
    profile.points.reserve(points);
    for (unsigned n = 0; n < points; ++n) {
      if (point_bytes == 2) {
        const auto row = Take<std::uint16_t>(at);
        if (row != kNoLine) profile.points.push_back({n, 255, row / 32.0});
        continue;
      }
      const unsigned column = Take<std::uint16_t>(at);
      const auto peak = Take<std::uint8_t>(at);
      Take<std::uint8_t>(at);  // width of the line
      profile.points.push_back({column, peak, Take<std::uint32_t>(at) / 65536.0});
    }
    profiles.push_back(std::move(profile));
  }
  return profiles;
}
