#pragma once

#include <array>
#include <cstdint>

#include "Devices/sensor/RegisterWrite.h"

namespace VeltranoSDK::gsprint {

inline constexpr std::uint16_t kStream = 0x0000;   // bit 0
inline constexpr std::uint16_t kHdrMode = 0x0003;  // bits 0 and 1
inline constexpr std::uint16_t kLineTimeMode = 0x0080;
inline constexpr std::uint16_t kLineTimeSlow = 0x0081;  // bit 0
inline constexpr std::uint16_t kSubsampling = 0x0110;   // bit 0
inline constexpr std::uint16_t kSubsamplingOn = 0x0111;
inline constexpr std::uint16_t kSubsamplingRows = 0x0196;  // bits 0 and 1
inline constexpr std::uint16_t kPower = 0x1C00;            // bit 0
inline constexpr std::uint16_t kSerialOutput = 0x2400;     // bit 4
inline constexpr std::uint16_t kTemperatureLow = 0x2500;
inline constexpr std::uint16_t kTemperatureHigh = 0x2501;

// Eleven bits each, in this register and the next.
inline constexpr unsigned int kRowBits = 0x07FF;
inline constexpr std::uint16_t kRowCount = 0x0130;
inline constexpr std::uint16_t kFirstRow = 0x0140;
inline constexpr std::uint16_t kRowCountCopy = 0x00B2;

inline constexpr std::array kHdrOff{
    RegisterWrite{kHdrMode, 0x00}.Only(0x03),
    RegisterWrite{0x0191, 0x01},
    RegisterWrite{0x0192, 0x00},
    RegisterWrite{0x0213, 0x04},
    RegisterWrite{0x0215, 0x04},
    RegisterWrite{0x0217, 0x04},
    RegisterWrite{0x0219, 0xCC},
    RegisterWrite{0x021A, 0x00},
    RegisterWrite{0x021B, 0xCC},
    RegisterWrite{0x021C, 0x00},
    RegisterWrite{0x021D, 0xCC},
    RegisterWrite{0x021E, 0x00},
};

// The knees follow; they depend on the line time.
inline constexpr std::array kHdrOn{
    RegisterWrite{kHdrMode, 0x01}.Only(0x03),
    RegisterWrite{0x0191, 0x03},
    RegisterWrite{0x0192, 0x14},
    RegisterWrite{0x0213, 0x14},
    RegisterWrite{0x0215, 0x06},
    RegisterWrite{0x0217, 0x06},
};
inline constexpr std::array<std::uint16_t, 3> kHdrKnees{0x0219, 0x021B, 0x021D};  // low, then high

struct GainRegister {
  std::uint16_t address;
  std::uint8_t mask;  // the bits that belong to the gain
};
inline constexpr std::array kGainRegisters{
    GainRegister{0x00A0, 0x0F}, GainRegister{0x00A2, 0x0F}, GainRegister{0x040B, 0xFF},
    GainRegister{0x080B, 0xFF}, GainRegister{0x200C, 0x3F}, GainRegister{0x2001, 0xFF},
};

struct GainRow {
  std::array<std::uint8_t, kGainRegisters.size()> values;
  bool placeholder = false;
};

constexpr GainRow GainPlaceholder(const GainRow& known) { return {known.values, true}; }

}  // namespace VeltranoSDK::gsprint
