#pragma once

#include <cstdio>
#include <string>

#include "Devices/sensor/SensorTest.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"

namespace VeltranoSDK {

// The first gain level, on registers whose other bits are 0. The rows after the first wait for the
// maker's documents and repeat it.
inline const Lines kFirstGain{"00A0 ?",    "00A0 = 01", "00A2 ?",    "00A2 = 01", "040B = 11",
                              "080B = 11", "200C ?",    "200C = 03", "2001 = 05"};

struct GsprintBus {
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

  static bool IsItsOwnPause(const std::string&) { return false; }
};

// A K3910 board, and its sensor's programming in its authors' terms: "0080 = 48" for a register,
// "0081 ?" for a read, "EXP_DELAY = 0x00000005" for the FPGA, "sleep 1000".
class GsprintTest : public SensorTest<GsprintBus> {
 protected:
  GsprintTest() : SensorTest("K3910", kSeries24) {}

  static GSPRINT6502BSI& sensor() { return dynamic_cast<GSPRINT6502BSI&>(*devices().cmos_sensor_); }
};

}  // namespace VeltranoSDK
