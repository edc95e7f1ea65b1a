#pragma once

#include "Devices/bus/SysfsGpio.h"
#include "Devices/fpga/FpgaTypes.h"

namespace VeltranoSDK {

// The red, green and blue status light. The constructor switches it off.
class RangeLed {
 public:
  // Bit 0 red, bit 1 green, bit 2 blue.
  enum Color : unsigned int {
    BLACK = 0,
    RED = 1,
    GREEN = 2,
    YELLOW = 3,
    BLUE = 4,
    MAGENTA = 5,
    CYAN = 6,
    WHITE = 7,
  };

  RangeLed();

  // A state other than on and off prepares the line but leaves its level alone.
  bool SetR(STATE state);
  bool SetG(STATE state);
  bool SetB(STATE state);
  // Sets red, green and blue, and stops at the first failure.
  bool SetColor(Color color);

 private:
  SysfsGpio pin55_;
  SysfsGpio pin56_;
  SysfsGpio pin57_;
};

}  // namespace VeltranoSDK
