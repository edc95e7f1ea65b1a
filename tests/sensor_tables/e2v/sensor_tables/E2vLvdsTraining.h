#pragma once

// One register. Made up for the tests.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kLvdsTraining{PagedEntry{0, 0x0340, 0x7777}};

}  // namespace VeltranoSDK::e2v
