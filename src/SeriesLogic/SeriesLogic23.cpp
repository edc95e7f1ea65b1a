#include "SeriesLogic/SeriesLogic23.h"

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaRegister.h"
#include "Devices/sensor/gmax2509/GMAX2509.h"
#include "Neighbours.h"
#include "SeriesLogic/LostCallbacks.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kImageFilterThreshold = 10;

// Code 1 of the FPGA's drive modes; no sensor has a mode with this number.
constexpr auto kSubsampledRows = static_cast<ReadoutDriveMode>(1);

// The sensor's line times, in its clocks.
constexpr unsigned short kImageLineTime = 12464;
constexpr unsigned short kLaserLineLineTime = 152;

// Images are read out slowly, laser lines as fast as the sensor can.
void FollowCollectMode(FpgaLogic& fpga) {
  const CollectMode mode = fpga.collect_mode();
  if (mode != kCollectImage && mode != kCollectLaserLine) return;
  neighbour::OnSensor<GMAX2509>("SeriesLogic23", [mode](GMAX2509& sensor) {
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
                               [] { neighbour::OnFpga("SeriesLogic23", FollowCollectMode); });
  // Reserved for products of this family that need more.
  RegisterNotificationCallback(kCollectModeChanged, [] {});
  RegisterNotificationCallback(kSensorInitialized, [] {
    neighbour::OnFpga("SeriesLogic23",
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

SeriesLogic2320::SeriesLogic2320() : SeriesLogic23(products::kProducts[kSeries2320]) {}

ReadoutDriveMode SeriesLogic2320::GetDefaultCmosReadoutDriveMode() { return kDriveMode11; }

std::pair<unsigned int, unsigned int> SeriesLogic2320::CalStartPoint(unsigned int x, unsigned int y,
                                                                     unsigned int width,
                                                                     unsigned int height) {
  // Every row of the region covers two rows of the chip.
  const auto [first, second] = SeriesLogic23::CalStartPoint(x, y, width, height);
  return {first, 2 * second};
}

ReadoutDriveMode SeriesLogic2320::GetSubsamplingPLDriveMode() { return kSubsampledRows; }

}  // namespace VeltranoSDK
