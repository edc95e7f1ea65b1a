#include "Devices/peripheral/ZynqTemp.h"

namespace VeltranoSDK {

ZynqTemp::ZynqTemp()
    : XSysMonTemperatureOnChip("/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw") {}

float ZynqTemp::GetTemp() { return ReadAndConvert({503.975, 4096.0, -273.15}); }

}  // namespace VeltranoSDK
