#pragma once

// Registers of the e2v Flash 4K that are loaded once the clocks run, page by page in this order.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::array kRegisters{
    PagedPlaceholder(0), PagedPlaceholder(1), PagedPlaceholder(2),
    PagedPlaceholder(3), PagedPlaceholder(6),
};

}  // namespace VeltranoSDK::e2v
