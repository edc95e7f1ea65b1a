#include "Devices/fpga/FpgaLogic.h"
#include "Devices/peripheral/DigitalPOT.h"
#include "Devices/peripheral/Laser.h"
#include "Devices/peripheral/RangeLed.h"
#include "Devices/peripheral/TemperatureSensor18b20.h"
#include "Devices/peripheral/XSysMonTemperatureOnChip.h"
#include "VeltranoApiCall.h"
#include "tessaline/peripherals.h"
#include "thread/Pause.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

constexpr unsigned int kLaserSettle = 50'000;  // microseconds until the light is steady

}  // namespace

extern "C" {

int OpenLaser(void) {
  return Call<int>(__func__, kLaser, [](Laser& laser) {
    if (!laser.Open()) return false;
    Pause(kLaserSettle);
    return true;
  });
}

int CloseLaser(void) { return Forward<int>(__func__, kLaser, &Laser::Close); }

int SetLaserPower(float percent) {
  return Forward<int>(__func__, kDigitalPot, &DigitalPOT::SetPosition, percent);
}

unsigned int GetDigitalPOTResolution(void) {
  return Forward<unsigned int>(__func__, kDigitalPot, &DigitalPOT::GetResolution);
}

int SetLaserMode(unsigned int mode) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetLaserMode, mode);
}

int LedControl(unsigned int colour) {
  return Forward<int>(__func__, kRangeLed, &RangeLed::SetColor, colour);
}

float GetCpuTemp(void) {
  return Forward<float>(__func__, kTemperature, &XSysMonTemperatureOnChip::GetTemp);
}

int64_t Temp18b20Read(void) {
  const Entry entry(__func__);
  return ReadTemperatureSensor18b20();
}

}  // extern "C"
