#pragma once

#include <array>
#include <cstdint>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"
#include "Devices/sensor/e2v_flash4k/E2vTexts.h"

namespace VeltranoSDK::e2v {

// A line takes the blanking and 128 more clocks.
inline constexpr unsigned int kClocksBesideBlanking = 128;
inline constexpr unsigned short kStartUpBlanking = 256;
inline constexpr unsigned int kTGes = 28;  // of the FPGA's line timing

inline constexpr std::uint16_t kStatusRegister = 0x0000;
inline constexpr std::uint16_t kBlanking = 0x0021;
inline constexpr std::uint16_t kReadoutControl = 0x0023;  // bit 2 reverses the rows
inline constexpr std::uint16_t kFirstRow = 0x0024;        // rows in steps of 8
inline constexpr std::uint16_t kRowCount = 0x0025;
inline constexpr std::uint16_t kReducedReadout = 0x0031;  // bit 0 halves both directions
inline constexpr std::uint16_t kFirstColumn = 0x0034;     // columns in steps of 64
inline constexpr std::uint16_t kColumnCount = 0x0035;
inline constexpr std::uint16_t kTestPattern = 0x005F;
inline constexpr std::uint16_t kControlMemoryAccess = 0x0070;
inline constexpr std::uint16_t kTripleLine = 0x0074;
inline constexpr std::uint16_t kExposure = 0x0097;
inline constexpr std::uint16_t kConfigurationDone = 0x012F;

// The values of the identification registers.
struct Identity {
  std::uint16_t address;
  std::uint16_t value;
};
inline constexpr std::array kIdentity{Identity{0x0001, 0x2030}, Identity{0x0002, 0x25F9}};

// The last one enables the PLL.
inline constexpr std::array kClockSetUp{
    Write{0x000F, 0x0001}, Write{0x0003, 0x131D}, Write{0x0005, 0x000C}, Write{0x0004, 0x0245},
    Write{0x000E, 0x0040}, Write{0x0010, 0x000A}, Write{0x0008, 0x0003},
};
inline constexpr std::array kSliceClock{Write{0x0009, 0x0005}};
inline constexpr std::array<unsigned char, 4> kSlices{1, 2, 3, 6};
inline constexpr std::array kSliceSetUp{
    Write{0x0061, 0x1803},
    Write{0x014D, 0x00FF},
    Write{0x0063, 0x0001},
};
inline constexpr std::array kSliceStart{
    Write{0x0065, 0x0001}, Write{0x0011, 0x0000}, Write{0x0012, 0x0000},
    Write{0x0013, 0x0000}, Write{0x0014, 0x0007},
};

inline constexpr StatusWait kPllLocked{
    0x60,
    "E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 value pass!! ",
    "- warnning: E2vFlash4k::RegisterInitialize PllEnable Read 0x0000 value not equal to 0x60! "
    "current value: %lx \n",
    kPllReadFailed,
};
inline constexpr StatusWait kSlicesConfigured{
    0x80,
    "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 value pass!! ",
    "- warnning: E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 value not equal "
    "to 0x80! current value: %lx \n",
    "E2vFlash4k::RegisterInitialize PllSlcConfiguration Read 0x0000 failed!",
};
inline constexpr StatusWait kReadoutReady{
    0xE0,
    "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 value pass!! ",
    "- warnning: E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 value not equal to "
    "0xe0! current value: %lx \n",
    "E2vFlash4k::RegisterInitialize StatusReadout Read 0x0000 failed!",
};

// Pattern, length and start of the training of the LVDS outputs.
inline constexpr std::array kLvdsSetUp{
    Write{0x0122, 0x3530},
    Write{0x0123, 0x0005},
    Write{0x0127, 0x4C53},
    Write{0x0128, 0x0001},
};

// Ends the check of the test image and switches the pattern off. Service staff know the failure of
// the last write as 0x0048.
inline constexpr std::array kTestImageEnd{
    Write{0x0071, 0x000F},
    Write{kTestPattern, 0x0000},
    Write{0x0041, 0x0001}.NamedAs(0x0048),
};

// Registers that hold the length of a line.
inline constexpr std::array<std::uint16_t, 6> kLineLength{0x009F, 0x00A0, 0x00A1,
                                                          0x00A2, 0x00A3, 0x00A4};

}  // namespace VeltranoSDK::e2v
