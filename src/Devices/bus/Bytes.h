#pragma once

#include <cstdint>

namespace VeltranoSDK {

// Splits words into bytes and joins them. Higher bits are dropped.
constexpr std::uint8_t LowByte(unsigned int word) { return static_cast<std::uint8_t>(word); }
constexpr std::uint8_t HighByte(unsigned int word) { return LowByte(word >> 8); }
constexpr std::uint16_t LowHalf(unsigned int word) { return static_cast<std::uint16_t>(word); }
constexpr std::uint16_t WordOf(unsigned int high, unsigned int low) {
  return LowHalf(high << 8 | low);
}

// The old word with the bits in `mask` replaced. `bits` is not cut to `mask`.
constexpr unsigned int Replaced(unsigned int old, unsigned int mask, unsigned int bits) {
  return (old & ~mask) | bits;
}

}  // namespace VeltranoSDK
