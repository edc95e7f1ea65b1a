#pragma once

#include <cstdint>

namespace VeltranoSDK::sony {

inline constexpr std::uint16_t kStandby = 0x3000;
inline constexpr std::uint16_t kReadoutMode = 0x300D;
inline constexpr std::uint16_t kFlip = 0x300E;  // bits 0 and 1
inline constexpr std::uint16_t kFrameLinesLow = 0x3010;
inline constexpr std::uint16_t kFrameLinesHigh = 0x3011;
inline constexpr std::uint16_t kTemperatureLatch = 0x301D;
inline constexpr std::uint16_t kTemperatureLow = 0x301E;
inline constexpr std::uint16_t kTemperatureHigh = 0x301F;  // bits 0 and 1
inline constexpr std::uint16_t kTypeLow = 0x3148;          // bits 6 and 7
inline constexpr std::uint16_t kTypeHigh = 0x3149;         // bits 0 to 6; bit 7 is a separate mark
inline constexpr std::uint16_t kGainLow = 0x3204;
inline constexpr std::uint16_t kGainHigh = 0x3205;  // bit 0
inline constexpr std::uint16_t kCropEnable = 0x3300;

}  // namespace VeltranoSDK::sony
