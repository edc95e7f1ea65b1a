#pragma once

#include "Devices/sensor/SensorSpiBus.h"

namespace VeltranoSDK {

// Register bus of the GMAX2509: 8-bit addresses, 8-bit values, in frames of 24 bits
// whose fields do not fall on byte boundaries. The bus knows no errors: the chip
// acknowledges nothing.
class GMAX2509SpiInterface {
 public:
  // Always true.
  bool Write(unsigned char addr, unsigned char value);
  // What arrived; 0 when nothing could be transferred.
  unsigned char Read(unsigned char addr);

 private:
  SensorSpiBus bus_;
};

}  // namespace VeltranoSDK
