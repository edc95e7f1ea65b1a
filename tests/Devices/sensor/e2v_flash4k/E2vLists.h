#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "Devices/sensor/e2v_flash4k/E2vSensorTest.h"

namespace VeltranoSDK {

// Bus accesses of the e2v Flash 4K's lists that have not been supplied yet.

inline const std::vector<unsigned> kRegisterPages{0, 1, 2, 3, 6};
inline constexpr unsigned kControlMemoryPage = 11;

// Nothing supplied yet: one placeholder per page, after one more selection of the page.
inline Lines Loaded(const std::vector<unsigned>& pages) {
  Lines steps;
  for (const unsigned page : pages) {
    steps = steps + Lines{"page " + std::to_string(page)} + PlaceholderOn(page);
  }
  return steps;
}

// Registers of the final configuration in order; the last five follow those whose place is known.
inline constexpr unsigned kFinalRegisters[]{
    0x0026, 0x0030, 0x0031, 0x0032, 0x0033, 0x0034, 0x0035, 0x0074, 0x0075, 0x0076, 0x007F, 0x0080,
    0x0081, 0x0082, 0x0097, 0x0098, 0x009F, 0x00A0, 0x00A1, 0x00A2, 0x00A3, 0x00A4, 0x0163, 0x01C7,
    0x01C8, 0x01C9, 0x01D4, 0x01E2, 0x01E3, 0x0023, 0x0024, 0x005F, 0x0122, 0x0123};
inline constexpr unsigned kExposure = 0x0097;
inline constexpr unsigned kFpgaTimed = 0;  // its values
inline constexpr unsigned kSensorTimed = 583;
// The driver's values; the other registers keep their contents.
inline const std::map<unsigned, unsigned> kFinalValues{
    {0x0034, 0},     {0x0035, 0x3F},  {0x0074, 0x480}, {0x009F, 0x180}, {0x00A0, 0x180},
    {0x00A1, 0x180}, {0x00A2, 0x180}, {0x00A3, 0x180}, {0x00A4, 0x180}};
inline constexpr unsigned kReadoutMode = 0x0031;  // keeps all but bit 0

inline std::string Named(unsigned address, const char* format, unsigned value = 0) {
  char text[16];
  snprintf(text, sizeof text, format, address, value);
  return text;
}

// The final configuration of a chip that holds held(address).
template <typename Held>
Lines FinalConfiguration(Held held, unsigned exposure) {
  Lines reads;
  Lines writes;
  for (const unsigned address : kFinalRegisters) {
    const auto given = kFinalValues.find(address);
    unsigned value = exposure;
    if (given != kFinalValues.end()) {
      value = given->second;
    } else if (address != kExposure) {
      reads.push_back(Named(address, "%04X ?"));
      value = static_cast<unsigned>(held(address));
      if (address == kReadoutMode) value &= ~1u;
    }
    writes.push_back(Named(address, "%04X = %04X", value));
  }
  return Lines{"page 0"} + reads + Lines{"page 0", "page 0"} + writes + Lines{"page 0"};
}

}  // namespace VeltranoSDK
