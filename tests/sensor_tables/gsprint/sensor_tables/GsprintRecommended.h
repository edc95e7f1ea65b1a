#pragma once

// 496 entries that all differ. Made up for the tests.

#include <array>
#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::gsprint {

using Setting = TableEntry<std::uint16_t, std::uint8_t>;

inline constexpr std::array<Setting, 496> kRecommendedSettings = [] {
  std::array<Setting, 496> table{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    table[i] = {static_cast<std::uint16_t>(0x7000 + i), static_cast<std::uint8_t>(i * 7)};
  }
  return table;
}();

}  // namespace VeltranoSDK::gsprint
