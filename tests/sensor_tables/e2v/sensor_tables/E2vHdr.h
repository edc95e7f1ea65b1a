#pragma once

// Each position has its own registers. Made up for the tests.

#include <array>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr unsigned char kHdrPage = 6;

inline constexpr std::array kHdrFirst{
    HdrEntry{0x0310, HdrValue::kConstant, 4096},
    HdrEntry{0x0311, HdrValue::kSub1},
};
inline constexpr std::array kHdrSecond{
    HdrEntry{0x0320, HdrValue::kConstant, 4096},
    HdrEntry{0x0321, HdrValue::kSub1},
};
inline constexpr std::array kHdrSquared{
    HdrEntry{0x0330, HdrValue::kConstant, 5120},
    HdrEntry{0x0331, HdrValue::kSub1},
    HdrEntry{0x0332, HdrValue::kSqSubKLow},
    HdrEntry{0x0333, HdrValue::kSqSubKHigh},
};

}  // namespace VeltranoSDK::e2v
