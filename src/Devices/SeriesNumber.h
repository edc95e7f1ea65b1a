#pragma once

namespace VeltranoSDK {

// Product series, by FPGA board, image sensor and place of the reconstruction. Each is the index of
// its row in products::kProducts.
enum SeriesNumber : int {
  kSeries21 = 0,
  kSeries22 = 1,
  kSeries22ch16 = 2,
  kSeries22ch16Arm = 3,
  kSeries23 = 4,
  kSeries2320 = 5,
  kSeries24 = 6,
  kSeries24ArmRebuild = 7,
  kSeries25 = 8,
  kSeries25ArmRebuild = 9,
  kSeriesUnknown = 10,
};

}  // namespace VeltranoSDK
