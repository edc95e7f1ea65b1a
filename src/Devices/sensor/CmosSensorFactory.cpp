#include "Devices/sensor/CmosSensorFactory.h"

#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/gmax2509/GMAX2509.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Devices/sensor/imx273/IMX273.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<CmosSensor> CmosSensorFactory::CreateCmosSensorBySeries(SeriesNumber series) {
  LogTrace()(" - - - - %d", static_cast<int>(series));
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
