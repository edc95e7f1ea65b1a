#pragma once

// Gain levels 1 to 4 of the GSPRINT6502BSI, one row per level; the columns are the registers of
// gsprint::kGainRegisters. The first row is known, the others repeat it.

#include <array>

#include "Devices/sensor/gsprint6502bsi/GsprintTables.h"

namespace VeltranoSDK::gsprint {

inline constexpr GainRow kFirstGainRow{{0x01, 0x01, 0x11, 0x11, 0x03, 0x05}};

inline constexpr std::array kGainRows{
    kFirstGainRow,
    GainPlaceholder(kFirstGainRow),
    GainPlaceholder(kFirstGainRow),
    GainPlaceholder(kFirstGainRow),
};

}  // namespace VeltranoSDK::gsprint
