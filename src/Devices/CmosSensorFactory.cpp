#include "Devices/CmosSensorFactory.h"

#include "Devices/IMX273.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<CmosSensor> CmosSensorFactory::CreateCmosSensorBySeries(SeriesNumber series) {
  LogTrace(" - - - - %d", static_cast<int>(series));
  switch (series) {
    case kSeries21:
      return std::make_shared<IMX273>();
    default:
      return nullptr;
  }
}

}  // namespace VeltranoSDK
