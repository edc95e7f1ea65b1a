#pragma once

// Control memories of the e2v Flash 4K, page by page in this order. Before the
// first, the driver makes them accessible (0x0070 = 0).

#include <array>

#include "Devices/tables/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kControlMemories{PagedPlaceholder()};

}  // namespace VeltranoSDK::e2v
