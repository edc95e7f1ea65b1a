#pragma once

// LVDS training of the e2v Flash 4K, after the driver's own set-up of 0x0122, 0x0123, 0x0127 and
// 0x0128.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kLvdsTraining{PagedPlaceholder()};

}  // namespace VeltranoSDK::e2v
