#pragma once

#include "Devices/peripheral/XSysMonTemperatureOnChip.h"

namespace VeltranoSDK {

// Zynq-7000: the XADC.
class ZynqTemp : public XSysMonTemperatureOnChip {
 public:
  ZynqTemp();
};

}  // namespace VeltranoSDK
