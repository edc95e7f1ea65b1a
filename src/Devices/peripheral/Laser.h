#pragma once

#include "Devices/bus/SysfsGpio.h"

namespace VeltranoSDK {

// The laser's two enable lines.
class Laser {
 public:
  Laser();

  bool Open();
  bool Close();

 private:
  SysfsGpio pin1_;
  SysfsGpio pin28_;
};

}  // namespace VeltranoSDK
