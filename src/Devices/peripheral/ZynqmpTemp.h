#pragma once

#include "Devices/peripheral/XSysMonTemperatureOnChip.h"

namespace VeltranoSDK {

// ZynqMP: the SYSMON block.
class ZynqmpTemp : public XSysMonTemperatureOnChip {
 public:
  ZynqmpTemp();
};

}  // namespace VeltranoSDK
