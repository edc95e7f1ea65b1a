#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Devices/SeriesNumber.h"
#include "SeriesLogic/Notification.h"

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}
class CmosSensor;
class DigitalPOT;
class FpgaLogic;
class FpgaRegister;
class StripParseProtocol;
class XSysMonTemperatureOnChip;

// Everything that differs between product series: the board's values, the classes of its devices,
// the strip layout, and programming added at certain moments. One instance per process, see
// SeriesLogicFactory.
class SeriesLogic {
 public:
  // Factor applied to a rising-edge threshold before it goes to the FPGA.
  virtual float GetRisingEdgeThresholdCoeff();
  virtual unsigned int GetCallbackLostCount() = 0;
  virtual bool ResetCallbackLostCount() = 0;
  virtual ~SeriesLogic();

  SeriesLogic(const SeriesLogic&) = delete;
  SeriesLogic& operator=(const SeriesLogic&) = delete;

  // The series' devices. Empty when the series has no class for it.
  std::shared_ptr<FpgaLogic> CreateFpgaLogic();
  std::shared_ptr<CmosSensor> CreateCmosSensor();
  std::shared_ptr<DevFOps::V4l2Base> CreateV4l2Buf();
  std::shared_ptr<XSysMonTemperatureOnChip> CreateXSysMonTemperatureOnChip();
  std::shared_ptr<DigitalPOT> CreateDigitalPOT();

  // Runs the callbacks of a notification on this thread, in the order of their registration. The
  // lock is held meanwhile, so a callback must neither register nor notify. An empty callback
  // throws std::bad_function_call, and any exception ends the round.
  void Notify(Notification notification);
  void RegisterNotificationCallback(Notification notification, std::function<void()> callback);

  std::shared_ptr<FpgaRegister> fpga_register() const { return fpga_register_; }
  std::shared_ptr<StripParseProtocol> strip_parse_protocol() const { return strip_parse_protocol_; }
  const std::string& da_chip_i2c_dev() const { return da_chip_i2c_dev_; }
  const std::string& digital_pot_i2c_dev() const { return digital_pot_i2c_dev_; }
  const std::string& sensor_bus_dev() const { return sensor_bus_dev_; }
  // Lines 1 to 6, in the order of products::GpioLines.
  const std::string& gpio_line(int one_to_six) const { return gpio_lines_.at(one_to_six - 1); }

 protected:
  // series_number: the base number of the class family, because all variants of a family have the
  // same devices.
  SeriesLogic(std::shared_ptr<FpgaRegister> fpga_register, SeriesNumber series_number);

  std::shared_ptr<StripParseProtocol> strip_parse_protocol_;

 private:
  std::shared_ptr<FpgaRegister> fpga_register_;
  SeriesNumber series_number_;
  std::map<Notification, std::vector<std::function<void()>>> notification_callbacks_;
  std::mutex mutex_;
  std::string da_chip_i2c_dev_;
  std::string digital_pot_i2c_dev_;
  std::string sensor_bus_dev_;
  std::array<std::string, 6> gpio_lines_;
};

}  // namespace VeltranoSDK
