#include "SeriesLogic/SeriesLogic2320.h"

namespace VeltranoSDK {

namespace {

// Code 1 of the FPGA's drive modes; no sensor has a mode of this number.
constexpr auto kSubsampledRows = static_cast<ReadoutDriveMode>(1);

}  // namespace

SeriesLogic2320::SeriesLogic2320() : SeriesLogic23(products::kProducts[kSeries2320]) {}

ReadoutDriveMode SeriesLogic2320::GetDefaultCmosReadoutDriveMode() { return kDriveMode11; }

std::pair<unsigned int, unsigned int> SeriesLogic2320::CalStartPoint(unsigned int x, unsigned int y,
                                                                     unsigned int width,
                                                                     unsigned int height) {
  // Every row of the region stands for two of the chip.
  const auto [first, second] = SeriesLogic23::CalStartPoint(x, y, width, height);
  return {first, 2 * second};
}

ReadoutDriveMode SeriesLogic2320::GetSubsamplingPLDriveMode() { return kSubsampledRows; }

}  // namespace VeltranoSDK
