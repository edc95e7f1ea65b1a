#pragma once

#include "Devices/XSysMonTemperatureOnChip.h"

namespace VeltranoSDK {

// ZynqMP: the SYSMON block.
class ZynqmpTemp : public XSysMonTemperatureOnChip {
 public:
  ZynqmpTemp();

  float GetTemp() override;
};

}  // namespace VeltranoSDK
