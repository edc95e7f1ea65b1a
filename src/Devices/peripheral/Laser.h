#pragma once

#include "Devices/bus/SysfsGpio.h"

namespace VeltranoSDK {

// The laser's two enable lines.
class Laser : private SysfsGpio {
 public:
  Laser();

  bool Open();
  bool Close();

 private:
  bool DriveBoth(const std::string& value) const;

  Line pin1_;
  Line pin28_;
};

}  // namespace VeltranoSDK
