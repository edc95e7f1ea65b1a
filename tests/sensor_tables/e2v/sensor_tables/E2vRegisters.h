#pragma once

// Three registers on two pages. Made up for the tests.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kRegisters{
    PagedEntry{1, 0x0300, 0x1000},
    PagedEntry{1, 0x0301, 0x1001},
    PagedEntry{2, 0x0300, 0x2000},
};

}  // namespace VeltranoSDK::e2v
