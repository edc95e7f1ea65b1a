#include "Devices/peripheral/DigitalPOTFactory.h"

#include "Devices/peripheral/AD5175DigiPOT.h"
#include "Devices/peripheral/TPL0401B.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<DigitalPOT> DigitalPOTFactory::CreateDigitalPOTBySeries(SeriesNumber series) {
  Trace(__func__);
  if (series == kSeries24 || series == kSeries25) return std::make_shared<TPL0401B>();
  return std::make_shared<AD5175DigiPOT>();
}

}  // namespace VeltranoSDK
