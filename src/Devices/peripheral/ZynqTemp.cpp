#include "Devices/peripheral/ZynqTemp.h"

namespace VeltranoSDK {

ZynqTemp::ZynqTemp() : XSysMonTemperatureOnChip(products::kZynq.thermometer) {}

}  // namespace VeltranoSDK
