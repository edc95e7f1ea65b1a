#include "Devices/fpga/FpgaLogicFactory.h"

#include "Devices/SeriesNumber.h"
#include "Devices/fpga/FpgaLogic25.h"
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
