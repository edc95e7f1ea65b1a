#include "Neighbours.h"

#include "DeviceManager.h"
#include "Runnable/RunnableObjectManager.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "log/Log.h"

namespace VeltranoSDK::neighbour {

namespace {

template <typename Target>
std::shared_ptr<Target> OrError(const char* who, std::shared_ptr<Target> target, const char* what) {
  if (!target) LogError()("%s: there is no %s, call RegisterHardwareInit first", who, what);
  return target;
}

template <typename Getter>
std::string OfSeries(const char* what, Getter get) {
  const auto series = Series(what);
  return series ? get(*series) : std::string();
}

}  // namespace

std::shared_ptr<FpgaLogic> Fpga(const char* who) {
  return OrError(who, DeviceManagerHolder::Instance()->fpga_logic_, "FPGA");
}

std::shared_ptr<CmosSensor> Sensor(const char* who) {
  return OrError(who, DeviceManagerHolder::Instance()->cmos_sensor_, "image sensor");
}

std::shared_ptr<DevFOps::V4l2Base> StripDevice(const char* who) {
  return OrError(who, DeviceManagerHolder::Instance()->v4l2_buf_, "strip device");
}

std::shared_ptr<CaptureVideoStream> ImageThread(const char* who) {
  return OrError(who, RunnableObjectManagerHolder::Instance()->video_, "image thread");
}

std::shared_ptr<CaptureStripStream> StripThread(const char* who) {
  return OrError(who, RunnableObjectManagerHolder::Instance()->strip_, "strip thread");
}

std::shared_ptr<SeriesLogic> Series(const char* who) {
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  if (!series) LogError()("%s: no product is selected, call GetLibVersion first", who);
  return series;
}

std::shared_ptr<FpgaRegister> FpgaRegions(const char* who) {
  const auto series = Series(who);
  return series ? series->fpga_register() : nullptr;
}

std::string DaChipBus() {
  return OfSeries("DA chip bus", [](const SeriesLogic& s) { return s.da_chip_i2c_dev(); });
}

std::string DigitalPotBus() {
  return OfSeries("potentiometer bus",
                  [](const SeriesLogic& s) { return s.digital_pot_i2c_dev(); });
}

std::string SensorBus() {
  return OfSeries("image sensor bus", [](const SeriesLogic& s) { return s.sensor_bus_dev(); });
}

std::string LineNumber(BoardLine line) {
  return OfSeries("GPIO line",
                  [line](const SeriesLogic& s) { return s.gpio_line(static_cast<int>(line)); });
}

std::string Model() { return DeviceManagerHolder::Instance()->model_; }

void FitImageFormat(const char* who, unsigned int width, unsigned int height) {
  if (const auto video = ImageThread(who)) video->SetV4l2Fmt(width, height);
}

void OtherDriver(const char* who) {
  LogError()("%s: the image sensor has another driver", who);
}

bool OnFpga(const char* who, const std::function<void(FpgaLogic&)>& use) {
  const auto fpga = Fpga(who);
  if (fpga) use(*fpga);
  return fpga != nullptr;
}

}  // namespace VeltranoSDK::neighbour
