#pragma once

#include <cstdint>

namespace VeltranoSDK::gmax2509 {

inline constexpr std::uint8_t kStreaming = 0x00;    // bit 1
inline constexpr std::uint8_t kFlipColumns = 0x01;  // bit 4
inline constexpr std::uint8_t kRowSubsampling = 0x12;
inline constexpr std::uint8_t kFirstRowLow = 0x13;
inline constexpr std::uint8_t kFirstRowHigh = 0x14;
inline constexpr std::uint8_t kRowCountLow = 0x15;
inline constexpr std::uint8_t kRowCountHigh = 0x16;
inline constexpr std::uint8_t kLineTimeLow = 0xA0;
inline constexpr std::uint8_t kLineTimeHigh = 0xA1;
inline constexpr std::uint8_t kGainControl = 0xB5;  // bit 6, and the gain
inline constexpr std::uint8_t kGain = 0xB6;
inline constexpr std::uint8_t kTemperatureLow = 0xC0;
inline constexpr std::uint8_t kTemperatureHigh = 0xC1;
inline constexpr std::uint8_t kPllDivider = 0xCE;
inline constexpr std::uint8_t kProgramming = 0xD0;  // bit 6; the low nibble belongs to the chip
inline constexpr std::uint8_t kPllMultiplier = 0xD2;
inline constexpr std::uint8_t kFlipRows = 0xDE;  // bit 6, cleared for a flip

// The first rows of the array are dark. Flipped, readout starts further in.
inline constexpr std::uint8_t kFirstRowUpright = 4;
inline constexpr std::uint8_t kFirstRowFlipped = 24;

}  // namespace VeltranoSDK::gmax2509
