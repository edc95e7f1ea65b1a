#include "SeriesLogic/SeriesLogic.h"

#include <algorithm>
#include <utility>

#include "Devices/capture/V4l2BufFactory.h"
#include "Devices/fpga/FpgaLogicFactory.h"
#include "Devices/fpga/FpgaRegister.h"
#include "Devices/peripheral/DigitalPOTFactory.h"
#include "Devices/peripheral/XSysMonTemperatureOnChipFactory.h"
#include "Devices/sensor/CmosSensorFactory.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "log/Log.h"
#include "tessaline/products.h"

namespace VeltranoSDK {

SeriesLogic::SeriesLogic(std::shared_ptr<FpgaRegister> fpga_register, SeriesNumber series_number)
    : strip_parse_protocol_(std::make_shared<StripParseProtocol>()),
      fpga_register_(std::move(fpga_register)),
      series_number_(series_number) {
  const products::Board& board = products::kProducts[series_number].family.board;
  da_chip_i2c_dev_ = board.laser_bus.path;
  digital_pot_i2c_dev_ = board.laser_bus.path;
  sensor_bus_dev_ = board.sensor_bus.path;
  std::ranges::transform(board.gpio.All(), gpio_lines_.begin(),
                         [](unsigned int line) { return std::to_string(line); });
}

SeriesLogic::~SeriesLogic() = default;

float SeriesLogic::GetRisingEdgeThresholdCoeff() { return 1.0F; }

std::shared_ptr<FpgaLogic> SeriesLogic::CreateFpgaLogic() {
  Trace(__func__);
  return FpgaLogicFactory::CreateFpgaLogicBySeries(series_number_);
}

std::shared_ptr<CmosSensor> SeriesLogic::CreateCmosSensor() {
  Trace(__func__);
  return CmosSensorFactory::CreateCmosSensorBySeries(series_number_);
}

std::shared_ptr<DevFOps::V4l2Base> SeriesLogic::CreateV4l2Buf() {
  Trace(__func__);
  return V4l2BufFactory::CreateV4l2BufBySeries(series_number_);
}

std::shared_ptr<XSysMonTemperatureOnChip> SeriesLogic::CreateXSysMonTemperatureOnChip() {
  Trace(__func__);
  return XSysMonTemperatureOnChipFactory::CreateXSysMonTemperatureOnChipBySeries(series_number_);
}

std::shared_ptr<DigitalPOT> SeriesLogic::CreateDigitalPOT() {
  Trace(__func__);
  return DigitalPOTFactory::CreateDigitalPOTBySeries(series_number_);
}

void SeriesLogic::Notify(Notification notification) {
  const std::lock_guard lock(mutex_);
  const auto entry = notification_callbacks_.find(notification);
  if (entry == notification_callbacks_.end()) return;
  for (const auto& callback : entry->second) callback();
}

void SeriesLogic::RegisterNotificationCallback(Notification notification,
                                               std::function<void()> callback) {
  const std::lock_guard lock(mutex_);
  notification_callbacks_[notification].push_back(std::move(callback));
}

}  // namespace VeltranoSDK
