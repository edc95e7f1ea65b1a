#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Runnable/StripWalk.h"

namespace tessaline_fuzz {

// The strips that a walk must find, computed byte by byte.
struct StripReference {
  std::vector<VeltranoSDK::StripHeader> strips;
  std::size_t bytes = 0;
  bool complete = true;

  StripReference(const std::uint8_t* data, std::size_t size, std::uint32_t count,
                 std::uint32_t bytes_per_point) {
    while (complete && strips.size() < count) {
      const std::size_t left = size - bytes;
      const std::uint8_t* const at = data + bytes;
      complete = false;
      if (left < 32) break;
      const VeltranoSDK::StripHeader strip{LittleEndian(at), LittleEndian(at + 8),
                                           LittleEndian(at + 16), LittleEndian(at + 24)};
      __extension__ using Wide = unsigned __int128;
      const Wide needed = Wide{strip.point_count} * bytes_per_point + 32;
      if (needed > left) break;
      complete = true;
      strips.push_back(strip);
      bytes += static_cast<std::size_t>(needed);
    }
  }

  std::uint64_t LastFrame() const { return strips.empty() ? 0 : strips.back().frame_id; }

 private:
  static std::uint64_t LittleEndian(const std::uint8_t* bytes) {
    std::uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
  }
};

}  // namespace tessaline_fuzz
