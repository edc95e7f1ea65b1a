#pragma once

// Final configuration of the e2v Flash 4K on page 0: 34 registers, each with its
// value while the FPGA times the exposure and while the sensor does.
//
// The list names 29 of its registers; five are unknown. The values of the list are
// all the maker's. What stands here instead is, for the registers that the driver
// programs itself, what they get from it at start-up: the full width, and lines of
// 256 + 128 clocks. For the others the placeholder register is rewritten; the
// register that belongs there is noted beside it.

#include <array>
#include <cstdint>

#include "Devices/tables/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::uint16_t kStartUpLine = 256 + 128;

inline constexpr std::array<FinalEntry, 34> kFinalConfiguration{{
    FinalPlaceholder(),                       // 0x0026
    FinalPlaceholder(),                       // 0x0030
    FinalPlaceholder(),                       // 0x0031
    FinalPlaceholder(),                       // 0x0032
    FinalPlaceholder(),                       // 0x0033
    FinalPlaceholder(0x0034, 0),              // first column
    FinalPlaceholder(0x0035, 4096 / 64 - 1),  // columns
    FinalPlaceholder(0x0074, 3 * kStartUpLine),
    FinalPlaceholder(),  // 0x0075
    FinalPlaceholder(),  // 0x0076
    FinalPlaceholder(),  // 0x007F
    FinalPlaceholder(),  // 0x0080
    FinalPlaceholder(),  // 0x0081
    FinalPlaceholder(),  // 0x0082
    FinalPlaceholder(),  // 0x0097
    FinalPlaceholder(),  // 0x0098
    FinalPlaceholder(0x009F, kStartUpLine),
    FinalPlaceholder(0x00A0, kStartUpLine),
    FinalPlaceholder(0x00A1, kStartUpLine),
    FinalPlaceholder(0x00A2, kStartUpLine),
    FinalPlaceholder(0x00A3, kStartUpLine),
    FinalPlaceholder(0x00A4, kStartUpLine),
    FinalPlaceholder(),  // 0x0163
    FinalPlaceholder(),  // 0x01C7
    FinalPlaceholder(),  // 0x01C8
    FinalPlaceholder(),  // 0x01C9
    FinalPlaceholder(),  // 0x01D4
    FinalPlaceholder(),  // 0x01E2
    FinalPlaceholder(),  // 0x01E3
    FinalPlaceholder(),  // unknown
    FinalPlaceholder(),  // unknown
    FinalPlaceholder(),  // unknown
    FinalPlaceholder(),  // unknown
    FinalPlaceholder(),  // unknown
}};

}  // namespace VeltranoSDK::e2v
