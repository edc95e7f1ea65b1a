#include "Devices/peripheral/ZynqmpTemp.h"

namespace VeltranoSDK {

ZynqmpTemp::ZynqmpTemp()
    : XSysMonTemperatureOnChip("/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw") {}

float ZynqmpTemp::GetTemp() { return ReadAndConvert({509.314, 65536.0, -280.23}); }

}  // namespace VeltranoSDK
