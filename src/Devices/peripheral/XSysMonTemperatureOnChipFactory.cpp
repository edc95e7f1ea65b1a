#include "Devices/peripheral/XSysMonTemperatureOnChipFactory.h"

#include "Devices/peripheral/ZynqTemp.h"
#include "Devices/peripheral/ZynqmpTemp.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<XSysMonTemperatureOnChip>
XSysMonTemperatureOnChipFactory::CreateXSysMonTemperatureOnChipBySeries(SeriesNumber series) {
  Trace(__func__);
  if (series == kSeries25) return std::make_shared<ZynqmpTemp>();
  return std::make_shared<ZynqTemp>();
}

}  // namespace VeltranoSDK
