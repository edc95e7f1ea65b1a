#pragma once

// Analogue gain of the e2v Flash 4K, one list per range.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

// Gain below 2.
inline constexpr std::array kGainLow{PagedPlaceholder()};
// Gain 2 and 3.
inline constexpr std::array kGainMiddle{PagedPlaceholder()};
// Gain above.
inline constexpr std::array kGainHigh{PagedPlaceholder()};

}  // namespace VeltranoSDK::e2v
