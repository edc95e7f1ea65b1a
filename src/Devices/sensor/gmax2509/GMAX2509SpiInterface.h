#pragma once

#include "Devices/sensor/SensorSpiBus.h"

namespace VeltranoSDK {

// Register bus of the GMAX2509: 8-bit addresses and values, in frames of 24 bits whose fields do
// not start at byte boundaries. The bus reports no errors: the chip acknowledges nothing.
class GMAX2509SpiInterface {
 public:
  // Always true.
  bool Write(unsigned char addr, unsigned char value);
  // The value received; 0 when the transfer failed.
  unsigned char Read(unsigned char addr);

 private:
  SensorSpiBus bus_;
};

}  // namespace VeltranoSDK
