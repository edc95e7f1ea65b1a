#pragma once

#include <array>

#include "Devices/sensor/gmax2509/Gmax2509InitEntry.h"
#include "Devices/sensor/gmax2509/Gmax2509Registers.h"

namespace VeltranoSDK::gmax2509 {

// The first row of the readout: the driver sets it to this value with every readout mode, so
// writing it here changes nothing.
inline constexpr InitValue kPlaceholderValue{kFirstRowUpright};

inline constexpr std::array kComputedEntries{
    InitEntry{kRowSubsampling, Computed::kRowSubsampling},
    InitEntry{kRowCountLow, Computed::kRowCountLow},
    InitEntry{kRowCountHigh, Computed::kRowCountHigh},
    InitEntry{kPllDivider, Computed::kPllDivider},
    InitEntry{kPllMultiplier, Computed::kPllMultiplier},
    InitEntry{kLineTimeLow, Computed::kLineTimeLow},
    InitEntry{kLineTimeHigh, Computed::kLineTimeHigh},
    InitEntry{kGainControl, Computed::kGain},
    // Two registers take the configuration; the maker's documents say which. Until then it goes to
    // two read-only ones.
    Placeholder(kTemperatureLow, InitValue{Computed::kConfiguration}),
    Placeholder(kTemperatureHigh, InitValue{Computed::kConfiguration}),
};

// Written in this order while the chip is being programmed.
inline constexpr auto kInitTable =
    Joined(kComputedEntries,
           Placeholders<kInitEntries - kComputedEntries.size()>(kFirstRowLow, kPlaceholderValue));

}  // namespace VeltranoSDK::gmax2509
