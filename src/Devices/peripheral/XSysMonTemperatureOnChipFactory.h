#pragma once

#include <memory>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

class XSysMonTemperatureOnChip;

class XSysMonTemperatureOnChipFactory {
 public:
  static std::shared_ptr<XSysMonTemperatureOnChip> CreateXSysMonTemperatureOnChipBySeries(
      SeriesNumber series);
};

}  // namespace VeltranoSDK
