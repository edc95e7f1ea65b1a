#include "SeriesLogic/SeriesLogic25.h"

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaRegister.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Neighbours.h"
#include "SeriesLogic/ExposureDelta.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

namespace {

// Clocks between two lines of the sensor.
constexpr unsigned short kImageBlanking = 256;
constexpr unsigned short kLaserLineBlanking = 1;

// Images are read out slowly, laser lines as fast as the sensor can.
void FollowCollectMode(FpgaLogic& fpga) {
  const CollectMode mode = fpga.collect_mode();
  if (mode != kCollectImage && mode != kCollectLaserLine) return;
  neighbour::OnSensor<E2vFlash4k>("SeriesLogic25", [mode](E2vFlash4k& sensor) {
    sensor.ModifyHorizontalBlanking(mode == kCollectImage ? kImageBlanking : kLaserLineBlanking);
  });
}

}  // namespace

SeriesLogic25::SeriesLogic25() : SeriesLogic(std::make_shared<FpgaRegisterZynqMp>(), kSeries25) {
  RegisterNotificationCallback(kCollectModeChanged,
                               [] { neighbour::OnFpga("SeriesLogic25", FollowCollectMode); });
  RegisterNotificationCallback(kExposureConfigured, [] {
    neighbour::OnFpga("SeriesLogic25",
                      [](FpgaLogic& fpga) { fpga.SetExposureNumDelta(kWideExposureDelta); });
  });
}

float SeriesLogic25::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic25::GetCallbackLostCount() { return FpgaLostCount(); }

bool SeriesLogic25::ResetCallbackLostCount() { return ResetFpgaLostCount(); }

std::uint8_t SeriesLogic25::GetStripPointDataByteCount() { return strip_point_data_byte_count_; }

SeriesLogicArmRebuild::SeriesLogicArmRebuild() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol25Arm>();
}

std::uint8_t SeriesLogicArmRebuild::GetStripPointDataByteCount() {
  return arm_strip_point_data_byte_count_;
}

}  // namespace VeltranoSDK
