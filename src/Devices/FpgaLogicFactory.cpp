#include "Devices/FpgaLogicFactory.h"

#include "Devices/FpgaLogic25.h"
#include "SeriesLogic/SeriesNumber.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<FpgaLogic> FpgaLogicFactory::CreateFpgaLogicBySeries(SeriesNumber series) {
  Trace(__func__);
  switch (series) {
    case kSeries23:
    case kSeries24:
    case kSeries25:
      return std::make_shared<FpgaLogic25>();
    default:
      return std::make_shared<FpgaLogic>();
  }
}

}  // namespace VeltranoSDK
