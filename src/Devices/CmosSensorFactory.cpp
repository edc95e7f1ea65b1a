#include "Devices/CmosSensorFactory.h"

#include "Devices/E2vFlash4k.h"
#include "Devices/GMAX2509.h"
#include "Devices/GSPRINT6502BSI.h"
#include "Devices/IMX252.h"
#include "Devices/IMX273.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<CmosSensor> CmosSensorFactory::CreateCmosSensorBySeries(SeriesNumber series) {
  LogTrace(" - - - - %d", static_cast<int>(series));
  switch (series) {
    case kSeries21:
      return std::make_shared<IMX273>();
    case kSeries22:
      return std::make_shared<IMX252>();
    case kSeries23:
    case kSeries2320:
      return std::make_shared<GMAX2509>();
    case kSeries24:
      return std::make_shared<GSPRINT6502BSI>();
    case kSeries25:
      return std::make_shared<E2vFlash4k>();
    default:
      return nullptr;
  }
}

}  // namespace VeltranoSDK
