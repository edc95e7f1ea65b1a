#pragma once

#include <array>

#include "Devices/sensor/RegisterWrite.h"

namespace VeltranoSDK::imx273 {

// Written in this order in standby, once after power-up.
inline constexpr std::array kFixedSettings{
    RegisterWrite{0x300B, 0x01},
    RegisterWrite{0x300C, 0x02},
    RegisterWrite{0x3016, 0x02},
    RegisterWrite{0x308A, 0x0B},
    RegisterWrite{0x308C, 0x08},
    RegisterWrite{0x30AA, 0x00},
    RegisterWrite{0x30AE, 0x01},
    RegisterWrite{0x3165, 0x00},
    RegisterWrite{0x3169, 0x10},
    RegisterWrite{0x316A, 0x02},
    RegisterWrite{0x3182, 0x01},
    RegisterWrite{0x31C8, 0xF3},
    RegisterWrite{0x31D0, 0xF4},
    RegisterWrite{0x3212, 0x08},
    RegisterWrite{0x321A, 0x00},
    RegisterWrite{0x3226, 0x02},
    // Service staff know this failure as 0x3054.
    RegisterWrite{0x3254, 0x00}.NamedAs(0x3054),
    RegisterWrite{0x3758, 0xA3},
    RegisterWrite{0x3759, 0x00},
    RegisterWrite{0x375A, 0x85},
    RegisterWrite{0x375B, 0x00},
    RegisterWrite{0x3832, 0xF5},
    RegisterWrite{0x3833, 0x00},
    RegisterWrite{0x38A2, 0xF6},
    RegisterWrite{0x38A3, 0x00},
    RegisterWrite{0x3A00, 0x80},
    RegisterWrite{0x3D48, 0xA3},
    RegisterWrite{0x3D49, 0x00},
    RegisterWrite{0x3D4A, 0x85},
    RegisterWrite{0x3D4B, 0x00},
    RegisterWrite{0x400E, 0x58},
    RegisterWrite{0x4014, 0x1C},
    RegisterWrite{0x4041, 0x2A},
    RegisterWrite{0x40A2, 0x06},
    RegisterWrite{0x40C1, 0xF6},
    RegisterWrite{0x40C7, 0x0F},
    RegisterWrite{0x40C8, 0x00},
};

// Frame of 0x046A lines of 0xEE clocks each.
inline constexpr std::array kFullFrameTiming{
    RegisterWrite{0x3010, 0x6A}, RegisterWrite{0x3011, 0x04}, RegisterWrite{0x3012, 0x00},
    RegisterWrite{0x3014, 0xEE}, RegisterWrite{0x3015, 0x00},
};

// Frame of 0x024A lines of 0xDA clocks each.
inline constexpr std::array kReducedTimingAtPowerUp{
    RegisterWrite{0x3010, 0x4A}, RegisterWrite{0x3011, 0x02}, RegisterWrite{0x3012, 0x00},
    RegisterWrite{0x3014, 0xDA}, RegisterWrite{0x3015, 0x00},
};
inline constexpr std::array kReducedTiming{
    RegisterWrite{0x3010, 0x4A},
    RegisterWrite{0x3011, 0x02},
    RegisterWrite{0x3012, 0x00}.Only(0x0F),
    RegisterWrite{0x3014, 0xDA},
    RegisterWrite{0x3015, 0x00},
};

// Region of interest switched off: back to the full frame's 0x046A lines.
inline constexpr std::array kFullFrameLineCount{
    RegisterWrite{0x3010, 0x6A},
    RegisterWrite{0x3011, 0x04},
    RegisterWrite{0x3012, 0x00}.Only(0x0F),
};

inline constexpr std::array kNoCrop{
    RegisterWrite{0x3310, 0x00}, RegisterWrite{0x3311, 0x00}, RegisterWrite{0x3312, 0x00},
    RegisterWrite{0x3313, 0x00}, RegisterWrite{0x3314, 0x00}, RegisterWrite{0x3315, 0x00},
    RegisterWrite{0x3316, 0x00}, RegisterWrite{0x3317, 0x00}, RegisterWrite{0x3300, 0x00},
};

// A crop value in two registers; the other bits of the high one are kept.
struct CropPair {
  std::uint16_t low;
  std::uint16_t high;
  std::uint8_t high_bits;
  std::uint16_t high_written = high;
};

struct CropLine {
  CropPair pair;
  std::uint8_t enable;  // its bit in CROP_ENABLE
};

inline constexpr std::array kCropLines{
    CropLine{{0x3310, 0x3311, 0x1F}, 0x01},
    CropLine{{0x3312, 0x3313, 0x0F}, 0x02},
    CropLine{{0x3318, 0x3319, 0x1F}, 0x04},
    CropLine{{0x331A, 0x331B, 0x0F}, 0x08},
};

inline constexpr std::array kCropSizes{
    CropPair{0x3314, 0x3315, 0x1F},
    CropPair{0x3316, 0x3317, 0x0F},
    // The high bits of the second region's width go to the first region's register, as in every
    // unit shipped.
    CropPair{0x331C, 0x331D, 0x1F, 0x3315},
    CropPair{0x331E, 0x331F, 0x0F},
};

}  // namespace VeltranoSDK::imx273
