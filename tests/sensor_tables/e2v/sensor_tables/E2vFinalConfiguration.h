#pragma once

// 34 registers whose values show the sensing mode. Made up for the tests.

#include <array>
#include <cstdint>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr auto kFinalConfiguration = [] {
  std::array<FinalEntry, 34> table{};
  std::uint16_t address = 0x0300;
  for (FinalEntry& entry : table) entry = {address++, 0x0F0F, 0x0505};
  return table;
}();

}  // namespace VeltranoSDK::e2v
