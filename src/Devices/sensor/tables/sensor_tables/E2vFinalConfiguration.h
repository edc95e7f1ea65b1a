#pragma once

// Final configuration of the e2v Flash 4K on page 0: 34 registers, each with two values: while the
// FPGA times the exposure, and while the sensor does.
//
// All values come from the maker, and only the maker knows the last five registers. Until then, the
// registers that the driver programs itself have values of the driver: all pixels, the full width,
// lines of 256 + 128 clocks, and, while the sensor times it, an exposure of 100 us until one is
// set. The others keep their contents.

#include <array>
#include <cstdint>

#include "Devices/sensor/e2v_flash4k/E2vTable.h"

namespace VeltranoSDK::e2v {

inline constexpr std::uint16_t kStartUpLine = 256 + 128;
inline constexpr std::uint16_t kStartUpColumns = 4096 / 64 - 1;

inline constexpr std::array<FinalEntry, 34> kFinalConfiguration{{
    FinalPlaceholder(0x0026),
    FinalPlaceholder(0x0030),
    FinalPlaceholder(0x0031, 0, 0, 0x0001),  // bit 0 halves the readout
    FinalPlaceholder(0x0032),
    FinalPlaceholder(0x0033),
    FinalPlaceholder(0x0034, 0, 0),  // first column
    FinalPlaceholder(0x0035, kStartUpColumns, kStartUpColumns),
    FinalPlaceholder(0x0074, 3 * kStartUpLine, 3 * kStartUpLine),
    FinalPlaceholder(0x0075),
    FinalPlaceholder(0x0076),
    FinalPlaceholder(0x007F),
    FinalPlaceholder(0x0080),
    FinalPlaceholder(0x0081),
    FinalPlaceholder(0x0082),
    FinalPlaceholder(0x0097, 0, 583),  // exposure, in steps of 0.17 us
    FinalPlaceholder(0x0098),
    FinalPlaceholder(0x009F, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x00A0, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x00A1, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x00A2, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x00A3, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x00A4, kStartUpLine, kStartUpLine),
    FinalPlaceholder(0x0163),
    FinalPlaceholder(0x01C7),
    FinalPlaceholder(0x01C8),
    FinalPlaceholder(0x01C9),
    FinalPlaceholder(0x01D4),
    FinalPlaceholder(0x01E2),
    FinalPlaceholder(0x01E3),
    // In place of the five: registers of the driver.
    FinalPlaceholder(0x0023),
    FinalPlaceholder(0x0024),
    FinalPlaceholder(0x005F),
    FinalPlaceholder(0x0122),
    FinalPlaceholder(0x0123),
}};

}  // namespace VeltranoSDK::e2v
