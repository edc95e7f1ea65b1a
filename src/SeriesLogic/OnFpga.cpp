#include "SeriesLogic/OnFpga.h"

#include "DeviceManager.h"
#include "Devices/FpgaLogic.h"
#include "log/Log.h"

namespace VeltranoSDK {

bool OnFpga(const char* who, const std::function<void(FpgaLogic&)>& use) {
  const auto fpga = DeviceManagerHolder::Instance()->fpga_logic_;
  if (fpga == nullptr) {
    LogError("%s: the FPGA is not set up, call RegisterHardwareInit first", who);
    return false;
  }
  use(*fpga);
  return true;
}

}  // namespace VeltranoSDK
