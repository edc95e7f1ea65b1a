#pragma once

// High dynamic range of the e2v Flash 4K: a list a position of the factor k. Each
// begins with its known head, the rest are the factors derived from k. Which registers
// take them is not known.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr unsigned char kHdrPage = 0;

inline constexpr std::array kHdrFirst{
    HdrPlaceholder(HdrValue::kConstant, 4096),
    HdrPlaceholder(HdrValue::kSub1),
};
inline constexpr std::array kHdrSecond{
    HdrPlaceholder(HdrValue::kConstant, 4096),
    HdrPlaceholder(HdrValue::kSub1),
};
inline constexpr std::array kHdrSquared{
    HdrPlaceholder(HdrValue::kConstant, 5120),
    HdrPlaceholder(HdrValue::kSub1),
    HdrPlaceholder(HdrValue::kSqSubKLow),
    HdrPlaceholder(HdrValue::kSqSubKHigh),
};

}  // namespace VeltranoSDK::e2v
