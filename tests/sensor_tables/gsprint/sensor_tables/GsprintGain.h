#pragma once

// Four rows that differ in everything, with bits set that do not belong to the gain. Made up for
// the tests.

#include <array>

#include "Devices/sensor/gsprint6502bsi/GsprintTables.h"

namespace VeltranoSDK::gsprint {

inline constexpr std::array kGainRows{
    GainRow{{0x11, 0x21, 0x31, 0x41, 0x51, 0x61}},
    GainRow{{0x12, 0x22, 0x32, 0x42, 0x52, 0x62}},
    GainRow{{0x13, 0x23, 0x33, 0x43, 0x53, 0x63}},
    GainRow{{0xF4, 0xF4, 0xF4, 0xF4, 0xF4, 0xF4}},
};

}  // namespace VeltranoSDK::gsprint
