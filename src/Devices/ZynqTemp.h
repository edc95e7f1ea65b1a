#pragma once

#include "Devices/XSysMonTemperatureOnChip.h"

namespace VeltranoSDK {

// Zynq-7000: the XADC.
class ZynqTemp : public XSysMonTemperatureOnChip {
 public:
  ZynqTemp();
};

}  // namespace VeltranoSDK
