#include "SeriesLogic/SeriesLogic23.h"

#include "Devices/FpgaLogic.h"
#include "Devices/FpgaRegister.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/OnFpga.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kSensorWidth = 4200;
constexpr unsigned int kSensorHeight = 2048;
constexpr unsigned int kImageFilterThreshold = 10;

}  // namespace

SeriesLogic23::SeriesLogic23() : SeriesLogic23(kSensorWidth, kSensorHeight) {}

SeriesLogic23::SeriesLogic23(unsigned int limit_a, unsigned int limit_b)
    : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries23, kZynqSpiSensorBoard),
      limit_a_(limit_a),
      limit_b_(limit_b) {
  RegisterNotificationCallback(kSensorInitialized, [] {
    OnFpga("SeriesLogic23",
           [](FpgaLogic& fpga) { fpga.SetImageFilterThrs(kImageFilterThreshold); });
  });
}

float SeriesLogic23::GetRisingEdgeThresholdCoeff() { return 0.5F; }

unsigned int SeriesLogic23::GetCallbackLostCount() { return FpgaLostCount(); }

bool SeriesLogic23::ResetCallbackLostCount() { return ResetFpgaLostCount(); }

ReadoutDriveMode SeriesLogic23::GetDefaultCmosReadoutDriveMode() { return kDriveMode00; }

std::pair<unsigned int, unsigned int> SeriesLogic23::CalStartPoint(unsigned int x, unsigned int y,
                                                                   unsigned int /*width*/,
                                                                   unsigned int height) {
  return {x, limit_b_ - (y + height)};
}

ReadoutDriveMode SeriesLogic23::GetSubsamplingPLDriveMode() { return kDriveMode11; }

}  // namespace VeltranoSDK
