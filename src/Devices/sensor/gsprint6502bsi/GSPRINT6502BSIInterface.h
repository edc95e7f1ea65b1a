#pragma once

#include <utility>
#include <vector>

#include "Devices/sensor/SensorSpiBus.h"

namespace VeltranoSDK {

// Register bus of the GSPRINT6502BSI: 8-bit registers at 15-bit addresses. The bus
// knows no errors: the chip acknowledges nothing.
class GSPRINT6502BSIInterface {
 public:
  // What arrived; 0 when nothing could be transferred.
  unsigned char Read(const unsigned short& addr);
  // Always true.
  bool Write(const unsigned short& addr, const unsigned char& value);
  // Each register by itself, the device opened once. Always true.
  bool BatchWrite(const std::vector<std::pair<unsigned short, unsigned char>>& list);
  // Registers one behind the other, in one frame. Always true.
  bool BatchWrite(const unsigned short& start, const std::vector<unsigned char>& data);

 private:
  SensorSpiBus bus_;
};

}  // namespace VeltranoSDK
