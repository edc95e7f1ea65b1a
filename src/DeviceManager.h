#pragma once

#include <memory>
#include <string>

#include "SingletonHolder.h"

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}
class CmosSensor;
class DaChip;
class DigitalPOT;
class FpgaLogic;
class Laser;
class LaserLed;
class RangeLed;
class XSysMonTemperatureOnChip;

// Owns the board's device objects. Copy the pointer of an object for as long as you use it: Init()
// replaces the members.
class DeviceManager {
 public:
  // Builds every member for the selected series. Returns false and changes nothing when no series
  // is selected.
  bool Init();

  std::shared_ptr<CmosSensor> cmos_sensor_;
  std::shared_ptr<DevFOps::V4l2Base> v4l2_buf_;
  std::shared_ptr<XSysMonTemperatureOnChip> temperature_;
  std::shared_ptr<FpgaLogic> fpga_logic_;
  std::shared_ptr<DigitalPOT> digital_pot_;
  std::shared_ptr<DaChip> da_chip_;
  std::shared_ptr<Laser> laser_;
  std::shared_ptr<RangeLed> range_led_;
  std::shared_ptr<LaserLed> laser_led_;
  std::string model_;  // as given to GetLibVersion, suffixes included
};

using DeviceManagerHolder = Foundation::SingletonHolder<DeviceManager>;

}  // namespace VeltranoSDK
