#pragma once

#include <string>

#include "Devices/DeviceTest.h"

namespace VeltranoSDK {

// A board with an image sensor, and the sensor's programming in its authors' terms: its bus
// translates events of the transcript and knows which pauses belong to the bus itself; "EXP_DELAY =
// 0x00000005" is a write to the FPGA.
template <typename Bus>
class SensorTest : public DeviceTest {
 protected:
  using DeviceTest::DeviceTest;

  static Lines Programming() {
    Lines steps;
    const std::string fpga = "fpga write ";
    for (const std::string& event : Events()) {
      if (const std::string access = Bus::AccessOf(event); !access.empty()) {
        steps.push_back(access);
      } else if (event.starts_with(fpga)) {
        steps.push_back(event.substr(event.find(' ', fpga.size()) + 1));
      } else if (event.starts_with("sleep ") && !Bus::IsItsOwnPause(event)) {
        steps.push_back(event);
      }
    }
    return steps;
  }

  // Only the accesses on the sensor's bus.
  static Lines Accesses() {
    Lines accesses;
    for (const std::string& event : Events()) {
      if (const std::string access = Bus::AccessOf(event); !access.empty()) {
        accesses.push_back(access);
      }
    }
    return accesses;
  }

  static int Chip(unsigned address) { return tessaline_board_chip_get("sensor", address); }
  static void SetChip(unsigned address, unsigned value) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
  }
};

}  // namespace VeltranoSDK
