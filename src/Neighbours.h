#pragma once

#include <functional>
#include <memory>
#include <string>

namespace VeltranoSDK {

namespace DevFOps {
class V4l2Base;
}
class CaptureStripStream;
class CaptureVideoStream;
class CmosSensor;
class FpgaLogic;
class FpgaRegister;
class SeriesLogic;

// A board's output lines, in the order of its description.
enum class BoardLine {
  kLaser1 = 1,
  kLaser2,
  kRangeRed,
  kRangeGreen,
  kRangeBlue,
  kLaserLed,
};

// How an object of the library finds the others. Before start-up the result is empty and an ERROR
// line says who asked.
namespace neighbour {

std::shared_ptr<FpgaLogic> Fpga(const char* who);
std::shared_ptr<CmosSensor> Sensor(const char* who);
std::shared_ptr<DevFOps::V4l2Base> StripDevice(const char* who);
std::shared_ptr<CaptureVideoStream> ImageThread(const char* who);
std::shared_ptr<CaptureStripStream> StripThread(const char* who);
std::shared_ptr<SeriesLogic> Series(const char* who);

// The register regions of the selected series' FPGA.
std::shared_ptr<FpgaRegister> FpgaRegions(const char* who);

// Device nodes and line numbers of the selected series' board. Where one is empty, opening it
// fails.
std::string DaChipBus();
std::string DigitalPotBus();
std::string SensorBus();
std::string LineNumber(BoardLine line);

// As given to GetLibVersion, suffixes included.
std::string Model();

// Sets the image device's format to the region the sensor accepted.
void FitImageFormat(const char* who, unsigned int width, unsigned int height);

// Calls use(fpga); false when there is no FPGA.
bool OnFpga(const char* who, const std::function<void(FpgaLogic&)>& use);

// Logs that the image sensor has another driver than `who` needs.
void OtherDriver(const char* who);

// Calls use(sensor) with the sensor's own driver; false when the sensor is not a `Driver`.
template <typename Driver, typename Use>
bool OnSensor(const char* who, Use use) {
  const auto any = Sensor(who);
  const auto sensor = std::dynamic_pointer_cast<Driver>(any);
  if (sensor) {
    use(*sensor);
  } else if (any) {
    OtherDriver(who);
  }
  return sensor != nullptr;
}

}  // namespace neighbour
}  // namespace VeltranoSDK
