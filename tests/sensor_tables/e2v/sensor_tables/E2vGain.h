#pragma once

// One value per range. Made up for the tests.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kGainLow{PagedEntry{3, 0x0300, 1}};
inline constexpr std::array kGainMiddle{PagedEntry{3, 0x0300, 2}};
inline constexpr std::array kGainHigh{PagedEntry{3, 0x0300, 3}};

}  // namespace VeltranoSDK::e2v
