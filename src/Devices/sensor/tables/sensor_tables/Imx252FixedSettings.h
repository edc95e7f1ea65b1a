#pragma once

#include <array>
#include <cstdint>

#include "Devices/sensor/imx252/Imx252Setting.h"

namespace VeltranoSDK::imx252 {

// Every drive mode clears this register at power-up anyway, a few steps later.
inline constexpr std::uint16_t kClearedAnyway = 0x3012;
inline constexpr std::uint8_t kCleared = 0x00;

// Written in this order in standby, once after power-up.
inline constexpr auto kFixedSettings =
    Joined(std::array{Setting{0x300B, 0x01}, Setting{0x300C, 0x02}, Setting{0x3016, 0x02},
                      Setting{0x301B, 0x00}, Setting{0x3023, 0x00}, Setting{0x3079, 0x08},
                      Setting{0x3089, 0x10}, Setting{0x308A, 0x02}},
           Placeholders<98>(kClearedAnyway, kCleared),
           std::array{Setting{0x3D04, 0xE5}, Setting{0x3D05, 0x00}},
           // Up to 0x3E27, then 0x3F20 to 0x3F23.
           Placeholders<64>(kClearedAnyway, kCleared),
           std::array{Setting{0x4005, 0xFF}, Setting{0x400B, 0x00}},
           Placeholders<24>(kClearedAnyway, kCleared),
           std::array{Setting{0x409C, 0x19}, Setting{0x409E, 0x54}});

}  // namespace VeltranoSDK::imx252
