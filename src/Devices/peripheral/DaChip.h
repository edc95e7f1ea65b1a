#pragma once

#include "Devices/bus/I2cDev.h"

namespace VeltranoSDK {

// The analogue output's 12-bit converter.
class DaChip {
 public:
  DaChip();

  // The low 12 bits of `value`; the upper ones are dropped.
  bool Write(int value);

 private:
  I2cDev i2c_;
};

}  // namespace VeltranoSDK
