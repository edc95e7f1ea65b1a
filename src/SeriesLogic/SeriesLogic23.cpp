#include "SeriesLogic/SeriesLogic23.h"

#include "Devices/FpgaLogic.h"
#include "Devices/FpgaRegister.h"
#include "Devices/GMAX2509.h"
#include "SeriesLogic/LostCallbacks.h"
#include "SeriesLogic/OnFpga.h"
#include "SeriesLogic/OnSensor.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kImageFilterThreshold = 10;

// The sensor's line times, in its clocks.
constexpr unsigned short kImageLineTime = 12464;
constexpr unsigned short kLaserLineLineTime = 152;

// Images are read out slowly, laser lines as fast as the sensor can.
void FollowCollectMode(FpgaLogic& fpga) {
  const CollectMode mode = fpga.collect_mode();
  if (mode != kCollectImage && mode != kCollectLaserLine) return;
  OnSensor<GMAX2509>("SeriesLogic23", [mode](GMAX2509& sensor) {
    sensor.SetLineTime(mode == kCollectImage ? kImageLineTime : kLaserLineLineTime);
  });
}

}  // namespace

SeriesLogic23::SeriesLogic23() : SeriesLogic23(products::kProducts[kSeries23]) {}

SeriesLogic23::SeriesLogic23(const products::Product& product)
    : SeriesLogic(std::make_shared<FpgaRegisterZynq>(), kSeries23),
      limit_a_(product.family.sensor.width),
      limit_b_(product.Height()) {
  RegisterNotificationCallback(kCollectModeChanged,
                               [] { OnFpga("SeriesLogic23", FollowCollectMode); });
  // Reserved for products of this family with more to do.
  RegisterNotificationCallback(kCollectModeChanged, [] {});
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
