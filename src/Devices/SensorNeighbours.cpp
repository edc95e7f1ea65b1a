#include "Devices/SensorNeighbours.h"

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "Runnable/CaptureVideoStream.h"
#include "Runnable/RunnableObjectManager.h"
#include "log/Log.h"

namespace VeltranoSDK {

std::shared_ptr<FpgaLogic> FpgaBeside(const char* who) {
  auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;
  if (!fpga) LogError("%s: there is no FPGA to keep in step with", who);
  return fpga;
}

void FitImageFormat(const char* who, unsigned int width, unsigned int height) {
  if (const auto video = RunnableObjectManagerHolder::Instance()->video_) {
    video->SetV4l2Fmt(width, height);
  } else {
    LogError("%s: there is no image capture thread to keep in step with", who);
  }
}

}  // namespace VeltranoSDK
