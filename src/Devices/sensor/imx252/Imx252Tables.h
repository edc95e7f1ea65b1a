#pragma once

#include <array>
#include <span>

#include "Devices/sensor/CmosSensorTypes.h"
#include "Devices/sensor/RegisterWrite.h"
#include "Devices/sensor/sony/SonyRegisters.h"

namespace VeltranoSDK::imx252 {

inline constexpr std::array kOutputOver8Channels{
    RegisterWrite{0x3005, 0x10},
    RegisterWrite{0x301C, 0x10},
};

// Length of a line in clocks, and the FPGA's row time for it. Over 16 channels every mode has the
// shortest one.
struct LineTiming {
  RegisterWrite low;
  RegisterWrite high;
  unsigned int row_time;
};
inline constexpr LineTiming k16ChannelLine{{0x3014, 0xD9}, {0x3015, 0x00}, 216};
inline constexpr LineTiming kHalfSizeLine{{0x3014, 0xDA}, {0x3015, 0x00}, 217};
inline constexpr LineTiming kFullLine{{0x3014, 0x36}, {0x3015, 0x01}, 309};

// Frames of 772 + 38 lines, not cropped.
inline constexpr std::array kReducedFrame{
    RegisterWrite{sony::kCropEnable, 0x00},
    RegisterWrite{sony::kFrameLinesLow, 0x2A},
    RegisterWrite{sony::kFrameLinesHigh, 0x03},
    RegisterWrite{0x3012, 0x00},
};

// Frames of 1536 + 38 lines: 2048 columns from the 8th on, 1536 rows from the 4th on.
inline constexpr std::array kFullFrame{
    RegisterWrite{sony::kCropEnable, 0x03},
    RegisterWrite{0x3310, 0x08},
    RegisterWrite{0x3311, 0x00},
    RegisterWrite{0x3312, 0x04},
    RegisterWrite{0x3313, 0x00},
    RegisterWrite{0x3314, 0x00},
    RegisterWrite{0x3315, 0x08},
    RegisterWrite{0x3316, 0x00},
    RegisterWrite{0x3317, 0x06},
    RegisterWrite{sony::kFrameLinesLow, 0x26},
    RegisterWrite{sony::kFrameLinesHigh, 0x06},
    RegisterWrite{0x3012, 0x00},
};

// How the sensor starts in each mode.
struct Start {
  ReadoutDriveMode mode;
  std::span<const RegisterWrite> frame;
  LineTiming line;  // over 8 channels
  std::uint8_t readout_mode;
  unsigned int width;
  unsigned int height;
};
inline constexpr std::array kStarts{
    Start{kDriveMode00, kFullFrame, kFullLine, 0x00, 2048, 1536},
    Start{kDriveMode11, kReducedFrame, kHalfSizeLine, 0x11, 1032, 772},
    // The chip has its own code for halving only the rows.
    Start{kDriveMode22, kReducedFrame, kFullLine, 0x02, 2064, 772},
};

}  // namespace VeltranoSDK::imx252
