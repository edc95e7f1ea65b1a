#include "DeviceManager.h"

#include "Devices/peripheral/DaChip.h"
#include "Devices/peripheral/Laser.h"
#include "Devices/peripheral/LaserLed.h"
#include "Devices/peripheral/RangeLed.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "log/Log.h"

namespace VeltranoSDK {

bool DeviceManager::Init() {
  Trace(__func__);
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  if (series == nullptr) return false;

  fpga_logic_ = series->CreateFpgaLogic();
  cmos_sensor_ = series->CreateCmosSensor();
  v4l2_buf_ = series->CreateV4l2Buf();
  temperature_ = series->CreateXSysMonTemperatureOnChip();
  digital_pot_ = series->CreateDigitalPOT();

  da_chip_ = std::make_shared<DaChip>();
  laser_ = std::make_shared<Laser>();
  range_led_ = std::make_shared<RangeLed>();
  laser_led_ = std::make_shared<LaserLed>();
  return true;
}

}  // namespace VeltranoSDK
