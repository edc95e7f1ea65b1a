#pragma once

// Two control memories. Made up for the tests.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kControlMemories{
    PagedEntry{11, 0x0000, 0xB000},
    PagedEntry{11, 0x0001, 0xB001},
};

}  // namespace VeltranoSDK::e2v
