#pragma once

// High dynamic range of the e2v Flash 4K: one list per position of the factor k. Each list begins
// with its known entries; the rest are the factors derived from k. The registers that take them are
// not known.

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
