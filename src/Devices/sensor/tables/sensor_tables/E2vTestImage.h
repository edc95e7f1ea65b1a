#pragma once

// Check of the e2v Flash 4K's test image, while its test pattern is on (0x005F = 1, which the
// placeholder finds and writes back).

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kTestImageCheck{PagedPlaceholder()};

}  // namespace VeltranoSDK::e2v
