#pragma once

#include <utility>
#include <vector>

#include "Devices/sensor/SensorSpiBus.h"

namespace VeltranoSDK {

// Register bus of the GSPRINT6502BSI: 8-bit registers at 15-bit addresses. The bus reports no
// errors: the chip acknowledges nothing.
class GSPRINT6502BSIInterface {
 public:
  // The value received; 0 when the transfer failed.
  unsigned char Read(const unsigned short& addr);
  // Always true.
  bool Write(const unsigned short& addr, const unsigned char& value);
  // Writes each register separately, with the device opened once. Always true.
  bool BatchWrite(const std::vector<std::pair<unsigned short, unsigned char>>& list);
  // Writes consecutive registers in one frame. Always true.
  bool BatchWrite(const unsigned short& start, const std::vector<unsigned char>& data);

 private:
  SensorSpiBus bus_;
};

}  // namespace VeltranoSDK
