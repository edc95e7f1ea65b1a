#pragma once

#include <memory>

#include "DeviceManager.h"
#include "Devices/CmosSensor.h"
#include "log/Log.h"

namespace VeltranoSDK {

// Does something to the board's image sensor, kept alive meanwhile, through its
// driver. Without one of that kind, that is before start-up, an ERROR line names
// `who` and nothing is done.
template <typename Driver, typename Use>
bool OnSensor(const char* who, Use use) {
  const auto sensor =
      std::dynamic_pointer_cast<Driver>(DeviceManagerHolder::Instance()->cmos_sensor_);
  if (sensor == nullptr) {
    LogError("%s: its image sensor is not set up, call RegisterHardwareInit first", who);
    return false;
  }
  use(*sensor);
  return true;
}

}  // namespace VeltranoSDK
