#pragma once

// Control memories of the e2v Flash 4K, on page 11. The driver makes them accessible (0x0070 = 0)
// before the first entry.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kControlMemories{PagedPlaceholder(11)};

}  // namespace VeltranoSDK::e2v
