#pragma once

#include <concepts>
#include <memory>
#include <utility>

#include "Devices/DeviceTest.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaLogicFactory.h"
#include "Devices/sensor/CmosSensor.h"
#include "support/Calling.h"

namespace tessaline_test {

using VeltranoSDK::CmosSensor;
using VeltranoSDK::FpgaLogic;

// An image sensor without a bus: FpgaLogic reads its model, resolution and camera delay.
class SensorWithoutBus : public CmosSensor {
 public:
  static constexpr unsigned int kCameraDelay = 0x12345;

  explicit SensorWithoutBus(VeltranoSDK::CmosSensorModel model) : CmosSensor(model, {4200, 1024}) {}

  bool RegisterInitialize(VeltranoSDK::ReadoutDriveMode) override { return true; }
  bool SetGain(unsigned int) override { return true; }
  unsigned int GetSensorTemp() override { return 0; }
  unsigned int GetSensorVer(unsigned int) override { return 0; }
  unsigned int GetCameraDelay() override { return kCameraDelay; }
  float GetExposureTimeUnit() override { return 1.0f; }

 protected:
  bool SetROIImpl(unsigned int, unsigned int, unsigned int, unsigned int) override { return true; }
  bool SetReadoutDriveModeImpl(VeltranoSDK::ReadoutDriveMode) override { return true; }
  bool SetReadoutDriveDirectionImpl(VeltranoSDK::ReadoutDriveDirection) override { return true; }
};

inline void CarrySensor(VeltranoSDK::CmosSensorModel model) {
  VeltranoSDK::DeviceManagerHolder::Instance()->cmos_sensor_ =
      std::make_shared<SensorWithoutBus>(model);
}

inline FpgaLogic& Logic() { return *VeltranoSDK::DeviceManagerHolder::Instance()->fpga_logic_; }

// A process has only one series, so every test case has too.
class FpgaLogicFixture : public VeltranoSDK::DeviceTest {
 protected:
  using DeviceTest::DeviceTest;

  void SetUp() override {
    DeviceTest::SetUp();
    CarrySensor(VeltranoSDK::kIMX273);
  }

  static FpgaLogic& logic() { return Logic(); }
};

class ZynqFpga : public FpgaLogicFixture {};

class ZynqMpFpga : public FpgaLogicFixture {
 protected:
  ZynqMpFpga() : FpgaLogicFixture("K4010", VeltranoSDK::kSeries25) {}
};

// --- Calls of methods ------------------------------------------------------------------------

// The result as an exported function returns it: true is 0, false is -1.
template <std::same_as<bool> Done>
Result Told(Done done) {
  return done ? 0 : static_cast<Result>(-1);
}
inline Result Told(std::uint64_t value) { return value; }
inline Result Told(std::pair<bool, unsigned int> value) {
  return Result{value.first} << 32 | value.second;
}

template <typename Value, typename... Parameter, typename... Argument>
Calling Asking(Value (FpgaLogic::*method)(Parameter...), Argument... argument) {
  return Calling::Something(
      [=] { return Told((Logic().*method)(static_cast<Parameter>(argument)...)); }, argument...);
}

template <typename Value, typename... Parameter, typename... Argument>
Calling Asking(Value (FpgaLogic::*method)(Parameter...) const, Argument... argument) {
  return Calling::Something(
      [=] { return Told((Logic().*method)(static_cast<Parameter>(argument)...)); }, argument...);
}

// The same with a sensor other than the IMX273.
template <typename Method, typename... Argument>
Calling AskingWith(VeltranoSDK::CmosSensorModel model, Method method, Argument... argument) {
  const Calling call = Asking(method, argument...);
  return Calling::Something(
      [=] {
        CarrySensor(model);
        return call.Make();
      },
      model, argument...);
}

}  // namespace tessaline_test
