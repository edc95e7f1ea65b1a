#pragma once

#include <cstdint>

namespace VeltranoSDK {

// What registers and frames are made of. Higher bits are dropped.
constexpr std::uint8_t LowByte(unsigned int word) { return static_cast<std::uint8_t>(word); }
constexpr std::uint8_t HighByte(unsigned int word) { return LowByte(word >> 8); }
constexpr std::uint16_t LowHalf(unsigned int word) { return static_cast<std::uint16_t>(word); }
constexpr std::uint16_t WordOf(unsigned int high, unsigned int low) {
  return LowHalf(high << 8 | low);
}

// What every update of a register makes of it: `mask` has the bits that are replaced.
constexpr unsigned int Replaced(unsigned int old, unsigned int mask, unsigned int bits) {
  return (old & ~mask) | bits;
}

}  // namespace VeltranoSDK
