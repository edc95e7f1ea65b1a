#pragma once

#include "Devices/bus/SysfsGpio.h"

namespace VeltranoSDK {

// The laser-on indicator. The constructor switches it off.
class LaserLed {
 public:
  LaserLed();

  bool Open();
  bool Close();

 private:
  SysfsGpio pin63_;
};

}  // namespace VeltranoSDK
