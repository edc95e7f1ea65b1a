#pragma once

#include "Devices/bus/I2cDev.h"

namespace VeltranoSDK {

// The 12-bit converter of the analogue output.
class DaChip {
 public:
  DaChip();

  // Writes the low 12 bits of `value`.
  bool Write(int value);

 private:
  I2cDev i2c_;
};

}  // namespace VeltranoSDK
