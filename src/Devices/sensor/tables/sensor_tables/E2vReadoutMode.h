#pragma once

// Bits of register 0x0023 of the e2v Flash 4K that go with the halved readout: set
// in mode 0x11, cleared in mode 0x00, one entry a bit group. None are known; a
// placeholder without bits leaves the register as it was read. Bit 2, the flip, is
// not the mode's.

#include <array>
#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kHalvedReadoutBits{
    Placeholder<std::uint16_t, std::uint16_t>(0x0023, 0x0000),
};

}  // namespace VeltranoSDK::e2v
