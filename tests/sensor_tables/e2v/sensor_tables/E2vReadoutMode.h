#pragma once

// Two groups of bits. Made up for the tests.

#include <array>
#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kHalvedReadoutBits{
    TableEntry<std::uint16_t, std::uint16_t>{0x0023, 0x0100},
    TableEntry<std::uint16_t, std::uint16_t>{0x0023, 0x0001},
};

}  // namespace VeltranoSDK::e2v
