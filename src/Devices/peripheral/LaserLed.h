#pragma once

#include "Devices/bus/SysfsGpio.h"

namespace VeltranoSDK {

// The laser-on indicator; off from construction on.
class LaserLed : private SysfsGpio {
 public:
  LaserLed();

  bool Open();
  bool Close();

 private:
  Line pin63_;
};

}  // namespace VeltranoSDK
