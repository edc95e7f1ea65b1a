#include "Devices/peripheral/ZynqmpTemp.h"

namespace VeltranoSDK {

ZynqmpTemp::ZynqmpTemp() : XSysMonTemperatureOnChip(products::kZynqMp.thermometer) {}

}  // namespace VeltranoSDK
