#pragma once

#include "Devices/bus/I2cDev.h"

namespace VeltranoSDK {

// Register bus of the Sony sensors: 16-bit addresses, 8-bit values. The current series names the
// bus device.
class ImxSensorI2cInterface {
 public:
  // `address` is the sensor's 7-bit bus address.
  explicit ImxSensorI2cInterface(unsigned char address);

  // Both try up to ten times and pause after every attempt.
  bool Write(unsigned short addr, unsigned char value);
  // 0 when the chip never answered.
  unsigned char Read(unsigned short addr);

 private:
  I2cDev device_;
};

}  // namespace VeltranoSDK
