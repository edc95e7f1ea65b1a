#pragma once

// Recommended settings of the GSPRINT6502BSI: 496 entries, written in this order while the bus
// stays open. 0x00A0 to 0x00A3 are known.

#include <array>
#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::gsprint {

using Setting = TableEntry<std::uint16_t, std::uint8_t>;

inline constexpr std::array<Setting, 496> kRecommendedSettings = [] {
  constexpr std::array kKnown{
      Setting{0x00A0, 0x01},
      Setting{0x00A1, 0x01},
      Setting{0x00A2, 0x01},
      Setting{0x00A3, 0x01},
  };
  std::array<Setting, 496> table{};
  table.fill(Placeholder<std::uint16_t, std::uint8_t>(0x00A0, 0x01));
  for (std::size_t i = 0; i < kKnown.size(); ++i) table[i] = kKnown[i];
  return table;
}();

}  // namespace VeltranoSDK::gsprint
