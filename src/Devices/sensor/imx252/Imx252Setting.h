#pragma once

#include <cstdint>

#include "Devices/sensor/SensorTable.h"

namespace VeltranoSDK::imx252 {

using Setting = TableEntry<std::uint16_t, std::uint8_t>;

}  // namespace VeltranoSDK::imx252
