#pragma once

#include "Devices/XSysMonTemperatureOnChip.h"

namespace VeltranoSDK {

// ZynqMP: the SYSMON block.
class ZynqmpTemp : public XSysMonTemperatureOnChip {
 public:
  ZynqmpTemp();
};

}  // namespace VeltranoSDK
