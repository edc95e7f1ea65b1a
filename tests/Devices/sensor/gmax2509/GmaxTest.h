#pragma once

#include <cstdio>
#include <string>

#include "Devices/sensor/SensorTest.h"
#include "Devices/sensor/gmax2509/GMAX2509.h"

namespace VeltranoSDK {

// "A0 = F0": a register of the sensor and the value written to it.
inline std::string Byte(unsigned address, unsigned value) {
  char text[24];
  snprintf(text, sizeof text, "%02X = %02X", address, value);
  return text;
}

struct GmaxBus {
  static std::string AccessOf(const std::string& event) {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    if (sscanf(event.c_str(), "spi1.0 write %2x %2x %2x", &a, &b, &c) == 3) {
      return Byte((a << 1 & 0xFF) | b >> 7, (b << 1 & 0xFF) | c >> 7);
    }
    if (sscanf(event.c_str(), "spi1.0 tx %2x %2x %2x", &a, &b, &c) == 3) {
      return Byte((a << 1 & 0xFF) | b >> 7, 0).substr(0, 3) + '?';
    }
    return {};
  }

  static bool IsItsOwnPause(const std::string& event) {
    return event == "sleep 10" || event == "sleep 1";
  }
};

// The sensor's programming in its authors' terms: "A0 = F0" for a register write, "A0 ?" for a
// read, "T_ROW = 0x..." for a write to the FPGA, "sleep 100". Details of the bus and of a pulse are
// left out.
class Gmax : public SensorTest<GmaxBus> {
 protected:
  explicit Gmax(const char* model = "K3820", SeriesNumber series = kSeries23)
      : SensorTest(model, series) {}

  static GMAX2509& sensor() { return dynamic_cast<GMAX2509&>(*devices().cmos_sensor_); }
};

}  // namespace VeltranoSDK
