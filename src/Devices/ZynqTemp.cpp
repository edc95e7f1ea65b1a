#include "Devices/ZynqTemp.h"

namespace VeltranoSDK {

ZynqTemp::ZynqTemp() : XSysMonTemperatureOnChip(products::kZynq.thermometer) {}

}  // namespace VeltranoSDK
