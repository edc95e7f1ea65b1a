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

// A board's output lines, by their place in its description.
enum class BoardLine {
  kLaser1 = 1,
  kLaser2,
  kRangeRed,
  kRangeGreen,
  kRangeBlue,
  kLaserLed,
};

// The one way from an object of the library to the others. Before the start-up that makes
// them the result is empty, and an ERROR line names `who` asked.
namespace neighbour {

std::shared_ptr<FpgaLogic> Fpga(const char* who);
std::shared_ptr<CmosSensor> Sensor(const char* who);
std::shared_ptr<DevFOps::V4l2Base> StripDevice(const char* who);
std::shared_ptr<CaptureVideoStream> ImageThread(const char* who);
std::shared_ptr<CaptureStripStream> StripThread(const char* who);
std::shared_ptr<SeriesLogic> Series(const char* who);

// Where the selected series' FPGA has its registers.
std::shared_ptr<FpgaRegister> FpgaRegions(const char* who);

// Device nodes and line numbers of the selected series' board; users of an empty one fail to open.
std::string DaChipBus();
std::string DigitalPotBus();
std::string SensorBus();
std::string LineNumber(BoardLine line);

// As given to GetLibVersion, suffixes included.
std::string Model();

// Fits the image thread's device to a region that the sensor has taken.
void FitImageFormat(const char* who, unsigned int width, unsigned int height);

// Does something to the FPGA; false when there is none.
bool OnFpga(const char* who, const std::function<void(FpgaLogic&)>& use);

// Logs that the image sensor has another driver than `who` needs.
void OtherDriver(const char* who);

// Calls use(driver) with the image sensor's own driver; false when there is none.
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
