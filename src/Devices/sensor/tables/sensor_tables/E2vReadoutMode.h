#pragma once

// Bits of register 0x0023 of the e2v Flash 4K that belong to the halved readout: set in mode 0x11,
// cleared in mode 0x00, one entry per group of bits. None are known; a placeholder without bits
// leaves the register unchanged. Bit 2, the flip, does not depend on the mode.

#include <array>
#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kHalvedReadoutBits{
    Placeholder<std::uint16_t, std::uint16_t>(0x0023, 0x0000),
};

}  // namespace VeltranoSDK::e2v
