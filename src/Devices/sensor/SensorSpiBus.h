#pragma once

#include <functional>

#include "Devices/bus/SpiDev.h"

namespace VeltranoSDK {

// The SPI bus of the sensors whose device is opened for every access and closed afterwards: mode 0,
// most significant bit first, 8 bits per word, 10 MHz.
class SensorSpiBus {
 public:
  // Opens the device, sets its options, runs `transfer` and closes the device. When the device does
  // not open or refuses an option, SpiDev reports it and there is no transfer.
  void Access(const std::function<void(DevFOps::SpiDev&)>& transfer);

 private:
  DevFOps::SpiDev device_;
};

}  // namespace VeltranoSDK
