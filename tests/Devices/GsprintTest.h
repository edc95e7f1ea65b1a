#pragma once

#include <cstdio>
#include <string>

#include "DeviceTest.h"
#include "Devices/GSPRINT6502BSI.h"

namespace VeltranoSDK {

// The first gain level, on registers that hold 0 beside it. The rows behind the first
// wait for the maker's documents and repeat it.
inline const Lines kFirstGain{"00A0 ?",    "00A0 = 01", "00A2 ?",    "00A2 = 01", "040B = 11",
                              "080B = 11", "200C ?",    "200C = 03", "2001 = 05"};

// A K3910 board, and its sensor's programming as its authors speak of it: "0080 = 48"
// for a register, "0081 ?" for a read, "EXP_DELAY = 0x00000005" for the FPGA, "sleep
// 1000".
class GsprintTest : public DeviceTest {
 protected:
  GsprintTest() : DeviceTest("K3910", kSeries24) {}

  static GSPRINT6502BSI& sensor() { return dynamic_cast<GSPRINT6502BSI&>(*devices().cmos_sensor_); }

  static Lines Programming() {
    Lines steps;
    const std::string fpga = "fpga write ";
    for (const std::string& event : Events()) {
      if (const std::string access = AccessOf(event); !access.empty()) {
        steps.push_back(access);
      } else if (event.starts_with(fpga)) {
        steps.push_back(event.substr(event.find(' ', fpga.size()) + 1));
      } else if (event.starts_with("sleep ")) {
        steps.push_back(event);
      }
    }
    return steps;
  }

  // Only what went over the sensor's bus.
  static Lines Accesses() {
    Lines accesses;
    for (const std::string& event : Events()) {
      if (const std::string access = AccessOf(event); !access.empty()) accesses.push_back(access);
    }
    return accesses;
  }

  static int Chip(unsigned address) { return tessaline_board_chip_get("sensor", address); }
  static void SetChip(unsigned address, unsigned value) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
  }

 private:
  static std::string AccessOf(const std::string& event) {
    unsigned high = 0;
    unsigned low = 0;
    unsigned value = 0;
    char text[16]{};
    if (sscanf(event.c_str(), "spi1.0 write %x %x %x", &high, &low, &value) == 3) {
      snprintf(text, sizeof text, "%04X = %02X", (high & 0x7F) << 8 | low, value);
    } else if (sscanf(event.c_str(), "spi1.0 tx %x %x", &high, &low) == 2) {
      snprintf(text, sizeof text, "%04X ?", high << 8 | low);
    }
    return text;
  }
};

}  // namespace VeltranoSDK
